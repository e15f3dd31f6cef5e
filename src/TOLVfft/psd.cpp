/*
 * Unnormalised power spectrum of a real frame: |X[k]|^2 of FFTW's half
 * spectrum, four bins at a time.
 *
 * The loop runs N / 8 + 1 rounds of four bins, so it writes 4 (N / 8 + 1)
 * floats, which is at least the N / 2 + 1 bins; the extra entries are the
 * squares of whatever lies in the tail of the complex vector and mean
 * nothing. Real and imaginary parts are separated by shuffles; each bin is
 * re * re + im * im with one float rounding per operation, exactly as a
 * scalar loop would give it.
 */
#include "TOLVfft/fftproc.h"
#include "lanes.h"

extern "C" TOLV_API int TOLV_FFTProcExecutePSDEx(_TOLV_FFTPROC *proc,
                                                 const float *input, float *psd,
                                                 TOLV_COMPLEX *scratch)
{
    const int n = proc->length;
    TOLV_COMPLEX *spectrum =
        scratch != nullptr ? scratch : _TOLV_AllocComplexVector(n);
    /* A forward real transform leaves its input untouched. */
    fftwf_execute_dft_r2c(proc->plan, const_cast<float *>(input),
                          (fftwf_complex *)spectrum);

    const float *pairs = (const float *)spectrum;
    const int rounds = n / 8 + 1;
    for (int r = 0; r < rounds; r++) {
        const _F4 lo = _LoadF4(pairs + 8 * r);     /* re0 im0 re1 im1 */
        const _F4 hi = _LoadF4(pairs + 8 * r + 4); /* re2 im2 re3 im3 */
        const _F4 re = _EvenLanes(lo, hi);
        const _F4 im = _OddLanes(lo, hi);
        _StoreF4(psd + 4 * r, re * re + im * im);
    }

    if (scratch == nullptr)
        fftwf_free(spectrum);
    return n / 2 + 1;
}
