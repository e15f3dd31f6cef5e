/*
 * Measurements of a running filter: the magnitude response from its impulse
 * response (through the library's FFT and dB scaling), the points where it
 * crosses a level, and its order.
 */
#ifndef TOLV_CLI_RESPONSE_H
#define TOLV_CLI_RESPONSE_H

#include <string>
#include <vector>

#include "filtertext.h"

namespace cli {

constexpr double kResponseFloorDb = 300.0;

struct Response {
    int length = 0;           /* impulse response length, a power of two */
    std::vector<float> db;    /* length / 2 + 1 bins, 0 .. Nyquist */
    std::vector<float> phase; /* the same bins, radians, in -pi .. pi */
    bool settled = true;      /* false: still ringing at the longest length */

    /* Fraction of Nyquist of bin k. */
    double fraction(size_t k) const { return 2.0 * double(k) / length; }
    /* Highest and lowest level over [lo, hi] (fractions of Nyquist). */
    float maxOver(const Band &b) const;
    float minOver(const Band &b) const;
    /* Fractions of Nyquist where the response crosses `level`, linearly
     * interpolated between bins. */
    std::vector<double> crossings(float level) const;
};

/* Runs an impulse through a new filter of the text and measures it: the
 * magnitude through the library's power spectrum and dB scaling, the phase
 * from its complex transform. */
Response measureResponse(const std::string &text, int channels);

/* Throws a failure, naming what to change, when the pass bands of a design
 * text stray beyond Ap (or above 0 dB) by more than a small margin. */
void checkPassBand(const Response &r, const FilterText &f);
/* Measures the filter of the text and throws, as above, when it is
 * unstable or misses its pass band. */
void checkRunnable(const std::string &text, const FilterText &f);

} // namespace cli

#endif
