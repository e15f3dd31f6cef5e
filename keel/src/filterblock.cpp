// filterblock.cpp - the recursive block filter on bare coefficient arrays.
//
// Direct form I in double. For each sample, with c coefficients:
//   acc  = b[0] * x[n]
//   acc += b[k] * x[n-k]   for k = 1 .. c-1, in that order
//   acc -= a[k] * y[n-k]   for k = 1 .. c-1, in that order
//   y[n] = acc
// x is the float input widened to double; a[0] is taken as 1 and not read.
// memA is a shift register of past inputs (memA[k-1] = x[n-k]) and memB one
// of past outputs (memB[k-1] = y[n-k]); only their first c - 1 entries are
// used of the c + 1 the caller provides.
#include "keel.h"

#include <cstring>

extern "C" {

/* 1 after filtering (also for samples <= 0, which does nothing); 0 for a
 * null pointer or a count below 1. */
KEEL_API int FilterBlockFloat(const double *a, const double *b, int count,
                              double *memA, double *memB, const float *input,
                              double *output, int samples) {
  if (a == nullptr || b == nullptr || memA == nullptr || memB == nullptr ||
      count < 1)
    return 0;
  if (samples <= 0)
    return 1;
  if (input == nullptr || output == nullptr)
    return 0;
  const int past = count - 1;
  const size_t shift = static_cast<size_t>(past > 0 ? past - 1 : 0);
  for (int n = 0; n < samples; ++n) {
    const double x = input[n];
    double acc = b[0] * x;
    for (int k = 1; k <= past; ++k)
      acc += b[k] * memA[k - 1];
    for (int k = 1; k <= past; ++k)
      acc -= a[k] * memB[k - 1];
    if (past > 0) {
      std::memmove(memA + 1, memA, shift * sizeof(double));
      std::memmove(memB + 1, memB, shift * sizeof(double));
      memA[0] = x;
      memB[0] = acc;
    }
    output[n] = acc;
  }
  return 1;
}

} // extern "C"
