// filterblock.cpp - the recursive block filter on bare coefficient arrays.
//
// Direct form I in double. For each sample, with c coefficients:
//   acc  = b[0] * x[n]
//   acc += b[k] * x[n-k]   for k = 1 .. c-1, in that order
//   acc -= a[k] * y[n-k]   for k = 1 .. c-1, in that order
//   y[n] = acc
// x is the float input widened to double; a[0] is taken as 1 and not read.
// Between calls memA keeps the past inputs (memA[k-1] = x[n-k]) and memB the
// past outputs (memB[k-1] = y[n-k]); only their first c - 1 entries are used
// of the c + 1 the caller provides.
#include "keel.h"

#include <vector>

namespace {

constexpr int kChunk = 256;    // samples per pass over the windows
constexpr int kStackPast = 64; // longer filters keep their windows on the heap

// The history is laid out in time order in two windows, `past` old samples
// followed by the current chunk, so no sample shifts the delay lines; the
// windows slide once per chunk.
void filterWindowed(const double *a, const double *b, int past, double *memA,
                    double *memB, const float *input, double *output,
                    int samples, double *xs, double *ys)
{
    for (int k = 1; k <= past; ++k) {
        xs[past - k] = memA[k - 1];
        ys[past - k] = memB[k - 1];
    }
    for (int start = 0; start < samples; start += kChunk) {
        const int count = samples - start < kChunk ? samples - start : kChunk;
        for (int j = 0; j < count; ++j) {
            const int p = past + j;
            const double x = input[start + j];
            xs[p] = x;
            double acc = b[0] * x;
            for (int k = 1; k <= past; ++k)
                acc += b[k] * xs[p - k];
            for (int k = 1; k <= past; ++k)
                acc -= a[k] * ys[p - k];
            ys[p] = acc;
            output[start + j] = acc;
        }
        for (int i = 0; i < past; ++i) {
            xs[i] = xs[count + i];
            ys[i] = ys[count + i];
        }
    }
    for (int k = 1; k <= past; ++k) {
        memA[k - 1] = xs[past - k];
        memB[k - 1] = ys[past - k];
    }
}

// With no coefficient both sums are empty: every output is 0, whatever the
// input, and neither coefficients nor memories are read.
int emptyFilter(double *output, int samples)
{
    if (samples > 0 && output == nullptr)
        return 0;
    for (int n = 0; n < samples; ++n)
        output[n] = 0.0;
    return 1;
}

} // namespace

extern "C" {

/* 1 after filtering (also for samples <= 0, which does nothing); 0 for a
 * null pointer or a count below 1. */
KEEL_API int FilterBlockFloat(const double *a, const double *b, int count,
                              double *memA, double *memB, const float *input,
                              double *output, int samples)
{
    if (count < 1)
        return emptyFilter(output, samples);
    if (a == nullptr || b == nullptr || memA == nullptr || memB == nullptr)
        return 0;
    if (samples <= 0)
        return 1;
    if (input == nullptr || output == nullptr)
        return 0;
    const int past = count - 1;
    if (past <= kStackPast) {
        double xs[kStackPast + kChunk], ys[kStackPast + kChunk];
        filterWindowed(a, b, past, memA, memB, input, output, samples, xs, ys);
    } else {
        std::vector<double> xs(past + kChunk), ys(past + kChunk);
        filterWindowed(a, b, past, memA, memB, input, output, samples,
                       xs.data(), ys.data());
    }
    return 1;
}

} // extern "C"
