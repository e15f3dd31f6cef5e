/*
 * Unnormalised power spectrum of a real frame: |X[k]|^2 of FFTW's half
 * spectrum, in groups of as many bins as the widest float lanes hold.
 *
 * The loop covers N / 8 + 1 rounds of four bins, so it writes 4 (N / 8 + 1)
 * floats, which is at least the N / 2 + 1 bins; the extra entries are the
 * squares of whatever lies in the tail of the complex vector and mean
 * nothing. Each bin is re * re + im * im with one float rounding per
 * operation, exactly as a scalar loop would give it, at any lane width.
 */
#include <string.h>

#include "TOLVfft/fftproc.h"
#include "lanes.h"

// The bin kernel at 4 float lanes (SSE2, NEON) and, on x86-64, at 8 (AVX2)
// and 16 (AVX-512F), chosen at run time.
#define _PSD_FLOATS 4
namespace {
namespace lanes4 {
#include "TOLVfft/psd_lanes.inc"
}
} // namespace
#undef _PSD_FLOATS
#if defined(__x86_64__)
_TOLV_TARGET_BEGIN("avx2")
#define _PSD_FLOATS 8
namespace {
namespace lanes8 {
#include "TOLVfft/psd_lanes.inc"
}
} // namespace
#undef _PSD_FLOATS
_TOLV_TARGET_END
_TOLV_TARGET_BEGIN("avx512f")
#define _PSD_FLOATS 16
namespace {
namespace lanes16 {
#include "TOLVfft/psd_lanes.inc"
}
} // namespace
#undef _PSD_FLOATS
_TOLV_TARGET_END
#endif

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

    /* Rounds of four bins, N / 8 + 1 of them: the widest lanes take the
     * whole groups, four lanes the rounds left over. */
    const float *pairs = (const float *)spectrum;
    const int count = 4 * (n / 8 + 1);
    const int done = _TOLV_WIDEST_F32(_PowerBins)(pairs, psd, count);
    lanes4::_PowerBins(pairs + 2 * done, psd + done, count - done);

    if (scratch == nullptr)
        fftwf_free(spectrum);
    return n / 2 + 1;
}
