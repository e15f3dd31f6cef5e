/* Helpers of the spectral-analysis tests: float bits, aligned buffers with
 * guard values, FFT and lapped-transform round trips. */
#ifndef TOLV_SPECTRAL_TEST_SUPPORT_H
#define TOLV_SPECTRAL_TEST_SUPPORT_H

#include <math.h>
#include <string.h>

#include <fftw3.h>

#include "support/messages.h"
#include "support/signal.h"
#include "tolv.h"

namespace spectral_test {

inline uint32_t Bits(float value)
{
    uint32_t bits;
    memcpy(&bits, &value, sizeof(bits));
    return bits;
}

/* `used` + `guard` aligned floats preset to a marker: the extent written. */
struct GuardedFloats {
    GuardedFloats(size_t used, size_t guard = 16)
        : size(used + guard), data((float *)fftwf_malloc(4 * size + 4))
    {
        std::fill(data, data + size, kMarker);
    }
    ~GuardedFloats() { fftwf_free(data); }
    float &operator[](size_t i) { return data[i]; }
    size_t WrittenExtent() const /* one past the last marker overwritten */
    {
        size_t extent = 0;
        for (size_t i = 0; i < size; i++)
            extent = Bits(data[i]) != Bits(kMarker) ? i + 1 : extent;
        return extent;
    }
    static constexpr float kMarker = -12345.5f;
    const size_t size;
    float *const data;
};

/* Forward then inverse gives N times a frame of noise back, through the
 * given processors or new ones of length n. */
inline bool RoundTrips(int n, unsigned seed, _TOLV_FFTPROC *fwd = nullptr,
                       _TOLV_FFTPROC *inv = nullptr)
{
    _TOLV_FFTPROC *f = fwd ? fwd : TOLV_FFTProcCreate(n),
                  *i = inv ? inv : TOLV_IFFTProcCreate(n);
    const std::vector<float> x = tolv_test::UniformNoise(n, seed);
    GuardedFloats in(n, 0), out(n, 0);
    std::copy(x.begin(), x.end(), in.data);
    TOLV_COMPLEX *spectrum = TOLV_CreateComplexVector(f);
    TOLV_FFTProcExecute(f, in.data, spectrum);
    TOLV_IFFTProcExecuteEx(i, spectrum, out.data, false);
    bool ok = true;
    for (int k = 0; k < n; k++)
        ok = ok && fabsf(out[k] / n - x[k]) < 1e-5f;
    TOLV_DestroyComplexVector(spectrum);
    if (!fwd)
        TOLV_FFTProcDestroy(f), TOLV_FFTProcDestroy(i);
    return ok;
}

/* Direct then inverse over a stream of noise gives each block back one call
 * late (measured worst errors 3e-7 to 5.4e-7); the first output is silence. */
inline double StreamError(int m, int blocks, unsigned seed)
{
    _TOLV_FMCLTPROC *proc = TOLV_FMCLTProcCreate(m);
    std::vector<TOLV_COMPLEX> w(m + 1);
    TOLV_FMCLTFreqWindow(w.data(), m);
    const auto signal = tolv_test::UniformNoise(m * blocks, seed);
    std::vector<float> previous(m, 0.0f), overlap(m, 0.0f), re(m), im(m),
        out(m);
    double worst = 0.0;
    for (int b = 0; b < blocks; ++b) {
        TOLV_FMCLTDirect(proc, re.data(), im.data(), &signal[b * m],
                         previous.data(), w.data());
        TOLV_FMCLTInverse(proc, re.data(), im.data(), out.data(),
                          overlap.data(), w.data());
        for (int i = 0; i < m; ++i)
            worst = std::max(
                worst, (double)std::fabs(out[i] -
                                         (b ? signal[(b - 1) * m + i] : 0.0f)));
    }
    TOLV_FMCLTProcDestroy(proc);
    return worst;
}

} // namespace spectral_test

#endif
