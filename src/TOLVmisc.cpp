/*
 * Small measures of a frame: a DC-blind level in decibels, the zero-crossing
 * rate, and a fixed high-pass that removes DC.
 */
#include <math.h>

#include "tolv.h"

/* Variance of the frame in dB relative to 0.32768; 0.0 stands for silence,
 * an empty frame and a variance rounded away alike. */
extern "C" TOLV_API float TOLV_CalcEnergy(const float *samples, int count)
{
    float sum = 0.0f;
    float sumOfSquares = 0.0f;
    for (int i = 0; i < count; i++) {
        sum += samples[i];
        sumOfSquares += samples[i] * samples[i];
    }
    const float mean = sum / (float)count;
    const float meanSquare = sumOfSquares / (float)count;
    const float variance = meanSquare - mean * mean;
    if (variance > 0.0f)
        return (float)(10.0 * log10((double)variance / 0.32768));
    return 0.0f;
}

/* Sign changes per sample (the divisor is the sample count, not the number
 * of pairs). A product of exactly zero, including one that underflows, is
 * not a crossing. samples[0] is read even for a count of 0. */
extern "C" TOLV_API float TOLV_CalcZeroCrossRate(const float *samples,
                                                 int count)
{
    float previous = samples[0];
    int crossings = 0;
    for (int i = 1; i < count; i++) {
        if (previous * samples[i] < 0.0f)
            crossings++;
        previous = samples[i];
    }
    return (float)crossings / (float)count;
}

/* One biquad high-pass in double, restarted from silence at each call:
 * gain about 0.01 at DC and 0.97 at Nyquist. The coefficients are the
 * double values of float coefficients. Each input is read before its output
 * is written, so the call may run in place. */
extern "C" TOLV_API void TOLV_RemoveDC(const float *input, float *output,
                                       int count)
{
    double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0;
    for (int i = 0; i < count; i++) {
        const double x0 = (double)input[i];
        const double y =
            (((-0.9114024043083191 * y2 + 1.9059464931488037 * y1) +
              0.9272743463516235 * x0) +
             (-1.8544940948486328) * x1) +
            0.9272743463516235 * x2;
        output[i] = (float)y;
        x2 = x1;
        x1 = x0;
        y2 = y1;
        y1 = y;
    }
}
