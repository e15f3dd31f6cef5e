/*
 * Cross-correlation through the FFT: the plain mean-lag product, the phase
 * transform (PHAT) weighted form for delay estimation, and a one-shot
 * normalised coefficient with the lag of its peak.
 *
 * Both inputs are zero-padded to 2 M, M being the larger length, so that
 * the circular correlation of the padded frames holds every linear lag from
 * -(M - 1) to M - 1 without wrapping. The result is rotated so that the lags
 * come in ascending order, lag 0 at index M - 1.
 */
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <cmath>
#include <cstdint>
#include <cstring>

#include "keel.h"
#include "lanes.h"
#include "tolv.h"

// Vectors of eight and sixteen floats pass only between inlined functions.
#pragma GCC diagnostic ignored "-Wpsabi"

struct _TOLV_XCORRPROC {
    KEEL_MEMDESCR memory;   // owns the object and its four buffers
    int32_t fftLength;      // 2 M, taken as it is by FFTW
    int32_t spectrumLength; // M + 1 bins
    int32_t lengthA;
    int32_t lengthB;
    _TOLV_FFTPROC *fft;
    _TOLV_FFTPROC *ifft;
    float *bufferA; // fftLength floats, 16-byte aligned
    float *bufferB;
    TOLV_COMPLEX *spectrumA; // spectrumLength pairs, 16-byte aligned
    TOLV_COMPLEX *spectrumB;
};

namespace {

// The bin kernels at 4 float lanes (SSE2, NEON) and, on x86-64, at 8 (AVX2)
// and 16 (AVX-512F), chosen at run time.
#define _XC_FLOATS 4
namespace lanes4 {
#include "TOLVxcorr_lanes.inc"
}
#undef _XC_FLOATS
#if defined(__x86_64__)
_TOLV_TARGET_BEGIN("avx2")
#define _XC_FLOATS 8
namespace lanes8 {
#include "TOLVxcorr_lanes.inc"
}
#undef _XC_FLOATS
_TOLV_TARGET_END
_TOLV_TARGET_BEGIN("avx512f")
#define _XC_FLOATS 16
namespace lanes16 {
#include "TOLVxcorr_lanes.inc"
}
#undef _XC_FLOATS
_TOLV_TARGET_END
#endif

// A times the conjugate of B, scaled: the plain cross spectrum,
// re = a.im b.im + a.re b.re, im = a.im b.re - b.im a.re, in float.
void crossSpectrum(TOLV_COMPLEX *a, const TOLV_COMPLEX *b, int bins,
                   float scale)
{
    int k = _TOLV_WIDEST_F32(_CrossBins)(a, b, bins, scale);
    for (; k < bins; ++k) {
        const float ar = a[k].re, ai = a[k].im;
        const float br = b[k].re, bi = b[k].im;
        a[k].re = (ai * bi + ar * br) * scale;
        a[k].im = (ai * br - bi * ar) * scale;
    }
}

// The cross spectrum brought to unit magnitude (times scale), so that only
// its phase, that is the delay, survives. A bin whose float power is zero
// keeps its value: there is no phase to keep and no division to make. The
// weights and products are formed in double and rounded back to float.
void phatSpectrum(TOLV_COMPLEX *a, const TOLV_COMPLEX *b, int bins, float scale)
{
    int k = _TOLV_WIDEST_F32(_PhatBins)(a, b, bins, scale);
    for (; k < bins; ++k) {
        const float ar = a[k].re, ai = a[k].im;
        const float br = b[k].re, bi = b[k].im;
        const float re = ai * bi + ar * br;
        const float im = br * ai - bi * ar;
        const double magnitude = sqrt(static_cast<double>(re * re + im * im));
        const double weight =
            magnitude > 0.0 ? static_cast<double>(scale) / magnitude : 1.0;
        a[k].re = static_cast<float>(static_cast<double>(re) * weight);
        a[k].im = static_cast<float>(static_cast<double>(im) * weight);
    }
}

// The first `count` samples of the input followed by zeros up to n.
void padInto(float *buffer, const float *input, int count, int n)
{
    const int head = count > 0 ? count : 0;
    if (head > 0)
        memcpy(buffer, input, head * sizeof(float));
    memset(buffer + head, 0, (n - head) * sizeof(float));
}

typedef void (*SpectrumKernel)(TOLV_COMPLEX *, const TOLV_COMPLEX *, int,
                               float);

// The road shared by both forms: pad, transform, weight the cross spectrum,
// transform back and rotate into ascending lags.
int correlate(_TOLV_XCORRPROC *proc, const float *a, const float *b,
              float *result, SpectrumKernel kernel, float scale)
{
    const int n = proc->fftLength;
    const int h = n / 2;
    // Without a sample there is no transform to run (FFTW gives no plan).
    if (h < 1)
        return n - 1;

    // Fresh zero padding on every call (the inverse leaves bufferA full).
    // The heads are overwritten by the inputs and the spectra by the
    // forward transforms, which write every bin: only the tails need zeros.
    padInto(proc->bufferA, a, proc->lengthA, n);
    padInto(proc->bufferB, b, proc->lengthB, n);

    TOLV_FFTProcExecute(proc->fft, proc->bufferA, proc->spectrumA);
    TOLV_FFTProcExecute(proc->fft, proc->bufferB, proc->spectrumB);
    kernel(proc->spectrumA, proc->spectrumB, proc->spectrumLength, scale);
    TOLV_IFFTProcExecuteEx(proc->ifft, proc->spectrumA, proc->bufferA, false);

    // Circular lags M + 1 .. 2 M - 1 are the negative lags -(M - 1) .. -1;
    // the lag -M at index M is dropped.
    memcpy(result, proc->bufferA + h + 1, (h - 1) * sizeof(float));
    memcpy(result + h - 1, proc->bufferA, h * sizeof(float));
    return n - 1;
}

} // namespace

// 2 M for the larger length M, in 64 bits.
static int64_t PaddedLength(int lengthA, int lengthB)
{
    return 2 * static_cast<int64_t>(lengthA > lengthB ? lengthA : lengthB);
}

extern "C" TOLV_API _TOLV_XCORRPROC *TOLV_XcorrProcCreate(int lengthA,
                                                          int lengthB)
{
    KEEL_MEMDESCR memory = KEELMEM_CreateMemDescrEx("XCorr Memory", 0, 0);
    _TOLV_XCORRPROC *proc = static_cast<_TOLV_XCORRPROC *>(
        KEELMEM_NewEx(memory, sizeof(_TOLV_XCORRPROC), 0));
    const int m = lengthA > lengthB ? lengthA : lengthB;
    proc->memory = memory;
    // Lengths whose transform length does not fit in 32 bits get none: the
    // spectra stay unallocated, which reports the processor as failed, and
    // the execute functions find nothing to transform.
    const bool fits = PaddedLength(lengthA, lengthB) <= INT32_MAX;
    proc->fftLength = fits ? 2 * m : 0;
    proc->spectrumLength = fits ? m + 1 : 0;
    proc->lengthA = lengthA;
    proc->lengthB = lengthB;
    const int64_t bufferBytes =
        static_cast<int64_t>(proc->fftLength) * sizeof(float);
    const int64_t spectrumBytes =
        static_cast<int64_t>(proc->spectrumLength) * sizeof(TOLV_COMPLEX);
    if (fits) {
        proc->bufferA =
            static_cast<float *>(KEELMEM_NewAligned(memory, 16, bufferBytes));
        proc->bufferB =
            static_cast<float *>(KEELMEM_NewAligned(memory, 16, bufferBytes));
        proc->spectrumA = static_cast<TOLV_COMPLEX *>(
            KEELMEM_NewAligned(memory, 16, spectrumBytes));
        proc->spectrumB = static_cast<TOLV_COMPLEX *>(
            KEELMEM_NewAligned(memory, 16, spectrumBytes));
    }
    proc->fft = TOLV_FFTProcCreate(proc->fftLength);
    proc->ifft = TOLV_IFFTProcCreate(proc->fftLength);
    if (!proc->spectrumA || !proc->spectrumB)
        KEELDEBUG_Error(-1,
                        "TOLVXcorrProcCreate: Erro na alocacao dos vetores!\n");
    return proc;
}

extern "C" TOLV_API int TOLV_XcorrProcDestroy(_TOLV_XCORRPROC *proc)
{
    if (!proc)
        return 1;
    TOLV_FFTProcDestroy(proc->fft);
    TOLV_FFTProcDestroy(proc->ifft);
    KEELMEM_DisposeMemDescr(proc->memory);
    return 1;
}

extern "C" TOLV_API int TOLV_XcorrVectorLength(_TOLV_XCORRPROC *proc)
{
    if (!proc)
        return -1;
    return proc->fftLength - 1;
}

extern "C" TOLV_API int TOLV_XcorrProcExecute(_TOLV_XCORRPROC *proc,
                                              const float *a, const float *b,
                                              float *result)
{
    if (!proc)
        return -1;
    // Gain of the unnormalised inverse (fftLength) and the mean over M.
    const float m = static_cast<float>(proc->fftLength / 2);
    const float scale = 1.0f / (m * static_cast<float>(proc->fftLength));
    return correlate(proc, a, b, result, crossSpectrum, scale);
}

extern "C" TOLV_API int TOLV_XcorrPhatProcess(_TOLV_XCORRPROC *proc,
                                              const float *a, const float *b,
                                              float *result)
{
    if (!proc)
        return -1;
    const float scale = 1.0f / static_cast<float>(proc->fftLength);
    return correlate(proc, a, b, result, phatSpectrum, scale);
}

extern "C" TOLV_API double TOLV_XcorrCoef(const float *a, int lengthA,
                                          const float *b, int lengthB, int *lag)
{
    if (!a) {
        KEELDEBUG_Error(-1, "TOLV_XcorrCoef: Invalid vector x\n");
        return -1.0;
    }
    if (!b) {
        KEELDEBUG_Error(-1, "TOLV_XcorrCoef: Invalid vector y\n");
        return -1.0;
    }
    if (PaddedLength(lengthA, lengthB) > INT32_MAX) {
        // No transform that long: the processor reports itself as failed.
        TOLV_XcorrProcDestroy(TOLV_XcorrProcCreate(lengthA, lengthB));
        return -1.0;
    }
    KEEL_MEMDESCR memory =
        KEELMEM_CreateMemDescrEx("TOLV_XcorCoef local mem", 1024, 0);
    const int m = lengthA > lengthB ? lengthA : lengthB;
    const int r = 2 * m - 1;
    float *x = KEELMEM_NewFloatVector(memory, lengthA);
    float *y = KEELMEM_NewFloatVector(memory, lengthB);
    float *result = KEELMEM_NewFloatVector(memory, r);
    _TOLV_XCORRPROC *proc = TOLV_XcorrProcCreate(lengthA, lengthB);
    if (lengthA > 0)
        memcpy(x, a, lengthA * sizeof(float));
    if (lengthB > 0)
        memcpy(y, b, lengthB * sizeof(float));

    // Mean squares; a silent vector divides by zero and the NaN or infinity
    // is the answer.
    const double ex = FVectorSumOfSquares(x, lengthA) / lengthA;
    const double ey = FVectorSumOfSquares(y, lengthB) / lengthB;
    TOLV_XcorrProcExecute(proc, x, y, result);

    float peak = 0.0f;
    if (lag) {
        const int index = FVectorArgAbsMax(result, r, &peak);
        *lag = index - m + 1;
    } else {
        peak = FVectorAbsMax(result, r);
    }
    const double coefficient = static_cast<double>(peak) / sqrt(ex * ey);

    TOLV_XcorrProcDestroy(proc);
    KEELMEM_DisposeMemDescr(memory);
    return coefficient;
}
