// vector.cpp - small float vector kernels.
#include "keel.h"

#include <cmath>

extern "C" {

KEEL_API void FVectorMulScalar(float *vector, int count, float factor)
{
    if (vector == nullptr)
        return;
    for (int i = 0; i < count; ++i)
        vector[i] *= factor;
}

/* Each sample widened to double and squared there; one double accumulator
 * in index order. 0 for count <= 0. */
KEEL_API double FVectorSumOfSquares(const float *vector, int count)
{
    double sum = 0.0;
    if (vector == nullptr)
        return sum;
    for (int i = 0; i < count; ++i) {
        const double sample = vector[i];
        sum += sample * sample;
    }
    return sum;
}

/* The peak search starts from magnitude 0 at index 0 and moves only on a
 * strictly greater magnitude: the first of equal peaks wins, NaN samples
 * are never taken, and an all-zero (or all-NaN) vector gives index 0 with
 * magnitude 0. -1 and 0 for count <= 0. */
KEEL_API int FVectorArgAbsMax(const float *vector, int count, float *maxValue)
{
    int index = -1;
    float peak = 0.0f;
    if (vector != nullptr && count > 0) {
        index = 0;
        for (int i = 0; i < count; ++i) {
            const float magnitude = std::fabs(vector[i]);
            if (magnitude > peak) {
                peak = magnitude;
                index = i;
            }
        }
    }
    if (maxValue != nullptr)
        *maxValue = peak;
    return index;
}

/* The same search as FVectorArgAbsMax, so the two figures always agree. */
KEEL_API float FVectorAbsMax(const float *vector, int count)
{
    float peak;
    FVectorArgAbsMax(vector, count, &peak);
    return peak;
}

} // extern "C"
