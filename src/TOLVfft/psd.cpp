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
#include <emmintrin.h>

#include "TOLVfft/fftproc.h"

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
        const __m128 lo = _mm_load_ps(pairs + 8 * r);     /* re0 im0 re1 im1 */
        const __m128 hi = _mm_load_ps(pairs + 8 * r + 4); /* re2 im2 re3 im3 */
        const __m128 re = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 im = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
        _mm_store_ps(psd + 4 * r,
                     _mm_add_ps(_mm_mul_ps(re, re), _mm_mul_ps(im, im)));
    }

    if (scratch == nullptr)
        fftwf_free(spectrum);
    return n / 2 + 1;
}
