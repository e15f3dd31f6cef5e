/*
 * Fast modulated complex lapped transform (MCLT) and the orthonormal type IV
 * sine transform.
 *
 * The MCLT of two successive blocks of M samples is obtained from one real
 * FFT of 2 M points: the sine analysis window is not applied to the samples
 * but in the frequency domain, as the combination j V[m] + V[m + 1] of two
 * adjacent bins of the phase-rotated spectrum V. The inverse runs the same
 * road backwards and overlap-adds; direct followed by inverse gives the
 * input back one block late. All streaming state lives in the caller's
 * arrays, so one processor can serve several streams in turn.
 */
#if defined(__x86_64__)
#include <immintrin.h>
#endif
#include <fftw3.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "keel.h"
#include "lanes.h"
#include "tolv.h"

// Vectors of eight and sixteen floats pass only between inlined functions.
#pragma GCC diagnostic ignored "-Wpsabi"

struct _TOLV_FMCLTPROC {
    int32_t size;           // M: block length and number of subbands
    float *buffer;          // M + 1 complex pairs; every transform runs here
    fftwf_plan forwardPlan; // real to complex, 2 M points, in place
    fftwf_plan inversePlan; // complex to real, 2 M points, in place
    fftwf_plan sinePlan;    // type IV sine transform, M points, in place
};

// The kernels at 4 float lanes (SSE2, NEON) and, on x86-64, at 8 (AVX2) and
// 16 (AVX-512F), chosen at run time.
#define _FM_FLOATS 4
namespace lanes4 {
#include "TOLVfmclt_lanes.inc"
}
#undef _FM_FLOATS
#if defined(__x86_64__)
_TOLV_TARGET_BEGIN("avx2")
#define _FM_FLOATS 8
namespace lanes8 {
#include "TOLVfmclt_lanes.inc"
}
#undef _FM_FLOATS
_TOLV_TARGET_END
_TOLV_TARGET_BEGIN("avx512f")
#define _FM_FLOATS 16
namespace lanes16 {
#include "TOLVfmclt_lanes.inc"
}
#undef _FM_FLOATS
_TOLV_TARGET_END
#endif

namespace {

// sqrt(1/8): gain of the two real end bins of the inverse.
const double kEndBinGain = 0.3535533905932738;

// FFTW's planner is not reentrant; the library-wide plan lock guards it when
// the plan service has created one.
void lockPlanner(KEEL_MUTEX lock)
{
    if (lock)
        MutexLock(lock);
}

void unlockPlanner(KEEL_MUTEX lock)
{
    if (lock)
        MutexUnlock(lock);
}

fftwf_complex *asComplex(float *p)
{
    return reinterpret_cast<fftwf_complex *>(p);
}

// FFTW refuses lengths below one and hands back no plans; the transforms of
// such a processor have nothing to compute and touch nothing.
bool usable(const _TOLV_FMCLTPROC *proc)
{
    return proc && proc->size >= 1 && proc->forwardPlan && proc->inversePlan &&
           proc->sinePlan;
}

// V[k] = s U[k] W[k] for k below count, in place on the interleaved
// spectrum: the orthonormal gain and the window's phase rotation.
void rotateBins(float *buf, const TOLV_COMPLEX *window, int count, float s)
{
    // The lanes flip the sign of the real parts' cross products: x - y is
    // x + (-y) to the bit.
    int k = _TOLV_WIDEST_F32(_RotateBins)(buf, window, count, s);
    for (; k < count; ++k) {
        const float ur = buf[2 * k] * s;
        const float ui = buf[2 * k + 1] * s;
        const float wr = window[k].re;
        const float wi = window[k].im;
        buf[2 * k] = ur * wr - ui * wi;
        buf[2 * k + 1] = wr * ui + wi * ur;
    }
}

// X[k] = j V[k] + V[k + 1] for k below m: the sine window, applied as a
// two-tap kernel across neighbouring bins.
void pairBins(const float *buf, float *real, float *imaginary, int m)
{
    int k = _TOLV_WIDEST_F32(_PairBins)(buf, real, imaginary, m);
    for (; k < m; ++k) {
        real[k] = buf[2 * k + 2] - buf[2 * k + 1];
        imaginary[k] = buf[2 * k] + buf[2 * k + 3];
    }
}

// A real end bin of the inverse: the float sum scaled in double, rounded,
// then given the gain t in float.
float endBin(float sum, double gain, float t)
{
    return static_cast<float>(static_cast<double>(sum) * gain) * t;
}

// Inner bins of the inverse, k + 1 for k below m - 1:
// conj(W[k + 1]) (X[k] - j X[k + 1]) / 4, then the gain t.
void unpairBins(const float *real, const float *imaginary,
                const TOLV_COMPLEX *window, float *buf, int m, float t)
{
    int k = _TOLV_WIDEST_F32(_UnpairBins)(real, imaginary, window, buf, m, t);
    for (; k < m - 1; ++k) {
        const float c = real[k] + imaginary[k + 1];
        const float a = imaginary[k] - real[k + 1];
        const float wr = window[k + 1].re;
        const float wi = window[k + 1].im;
        buf[2 * k + 2] = (wi * a + wr * c) * 0.25f * t;
        buf[2 * k + 3] = (a * wr - wi * c) * 0.25f * t;
    }
}

// Four floats widened, divided by d and, when given, added to four more, in
// double; the results rounded back to float.
_F4 scaleAndAdd(_F4 y, double d, const float *add)
{
    _D2 lo = _WidenLow(y) / d;
    _D2 hi = _WidenHigh(y) / d;
    if (add) {
        const _F4 o = _LoadF4(add);
        lo = lo + _WidenLow(o);
        hi = hi + _WidenHigh(o);
    }
    return _Narrow(lo, hi);
}

// Overlap-add of the 2 M inverse samples divided by 2 M, in double: the
// first half completes the block, the second half waits for the next call.
void overlapAddDouble(const float *buf, float *output, float *overlap, int m,
                      int k)
{
    const double d = 2.0 * m;
    for (; k + 4 <= m; k += 4) {
        _StoreF4(output + k, scaleAndAdd(_LoadF4(buf + k), d, overlap + k));
        _StoreF4(overlap + k, scaleAndAdd(_LoadF4(buf + m + k), d, nullptr));
    }
    for (; k < m; ++k) {
        output[k] = static_cast<float>(buf[k] / d + overlap[k]);
        overlap[k] = static_cast<float>(buf[m + k] / d);
    }
}

// The same step for 2 M a power of two, in float and bit for bit equal:
// y / 2 M is exact in double, and y times the exact reciprocal is that same
// value rounded once to float, so the new overlap needs no double at all.
// The output adds the old overlap: while y / 2 M is exact in float, the float
// sum of two floats equals their double sum rounded to float (double has
// more than twice float's precision). Only samples whose quotient falls
// below the smallest normal float could round first; a group holding one
// takes the double road.
void overlapAddPowerOfTwo(const float *buf, float *output, float *overlap,
                          int m)
{
    const float d = 2.0f * static_cast<float>(m);
    const float reciprocal = 1.0f / d;
    const float tiny = FLT_MIN * d;
    const int k = _TOLV_WIDEST_F32(_OverlapAddFloat)(buf, output, overlap, m,
                                                     reciprocal, tiny);
    overlapAddDouble(buf, output, overlap, m, k);
}

void overlapAdd(const float *buf, float *output, float *overlap, int m)
{
    if ((m & (m - 1)) == 0)
        overlapAddPowerOfTwo(buf, output, overlap, m);
    else
        overlapAddDouble(buf, output, overlap, m, 0);
}

} // namespace

extern "C" TOLV_API _TOLV_FMCLTPROC *TOLV_FMCLTProcCreate(int size)
{
    _TOLV_FMCLTPROC *proc =
        static_cast<_TOLV_FMCLTPROC *>(calloc(1, sizeof(_TOLV_FMCLTPROC)));
    KEEL_MUTEX lock = __FFTW_PlanLock;
    lockPlanner(lock);
    proc->size = size;
    // 2 M + 2 floats: the half spectrum of 2 M points, bins 0 .. M. A size
    // below one asks for no memory at all (the planner then refuses too).
    // A size whose 2 M does not fit the planner's 32-bit lengths gets no
    // buffer and no plans, and the transforms then do nothing.
    const int64_t points = 2 * static_cast<int64_t>(size);
    if (points >= INT32_MIN && points <= INT32_MAX) {
        const size_t floats = size >= 1 ? static_cast<size_t>(points) + 2 : 0;
        proc->buffer =
            static_cast<float *>(fftwf_malloc(floats * sizeof(float)));
        float *b = proc->buffer;
        const int n = static_cast<int>(points);
        proc->forwardPlan =
            fftwf_plan_dft_r2c_1d(n, b, asComplex(b), FFTW_ESTIMATE);
        proc->inversePlan =
            fftwf_plan_dft_c2r_1d(n, asComplex(b), b, FFTW_ESTIMATE);
        proc->sinePlan =
            fftwf_plan_r2r_1d(size, b, b, FFTW_RODFT11, FFTW_ESTIMATE);
    }
    unlockPlanner(lock);
    return proc;
}

extern "C" TOLV_API int TOLV_FMCLTProcDestroy(_TOLV_FMCLTPROC *proc)
{
    if (!proc)
        return 0;
    KEEL_MUTEX lock = __FFTW_PlanLock;
    lockPlanner(lock);
    if (proc->forwardPlan)
        fftwf_destroy_plan(proc->forwardPlan);
    if (proc->inversePlan)
        fftwf_destroy_plan(proc->inversePlan);
    if (proc->sinePlan)
        fftwf_destroy_plan(proc->sinePlan);
    fftwf_free(proc->buffer);
    unlockPlanner(lock);
    free(proc);
    return 1;
}

extern "C" TOLV_API void TOLV_FMCLTFreqWindow(TOLV_COMPLEX *window, int size)
{
    if (size < 0)
        return;
    // exp(-j 2 pi (2 k + 1) / 8) exp(-j 2 pi k / (4 M)): the quarter-bin
    // shift of the MCLT basis and the half-sample delay of the sine window.
    // k and M reach the phase through single precision.
    const double m4 = static_cast<double>(static_cast<float>(size)) * 4.0;
    for (int k = 0; k <= size; ++k) {
        const double kd = static_cast<double>(static_cast<float>(k));
        const double a = (2.0 * kd + 1.0) * 0.125 + kd / m4;
        double s, c;
        sincos(2.0 * M_PI * a, &s, &c);
        window[k].re = static_cast<float>(c);
        window[k].im = -static_cast<float>(s);
    }
}

extern "C" TOLV_API void TOLV_FMCLTDirect(_TOLV_FMCLTPROC *proc, float *real,
                                          float *imaginary,
                                          const float *newBlock,
                                          float *previousBlock,
                                          const TOLV_COMPLEX *window)
{
    if (!usable(proc))
        return;
    const int m = proc->size;
    float *buf = proc->buffer;

    // The older block first: the transform spans 2 M samples.
    memcpy(buf, previousBlock, m * sizeof(float));
    memcpy(buf + m, newBlock, m * sizeof(float));
    fftwf_execute_dft_r2c(proc->forwardPlan, buf, asComplex(buf));

    const float s = static_cast<float>(sqrt(1.0 / (2.0 * m)));
    rotateBins(buf, window, m + 1, s);
    memmove(previousBlock, newBlock, m * sizeof(float));
    pairBins(buf, real, imaginary, m);
}

extern "C" TOLV_API void TOLV_FMCLTInverse(_TOLV_FMCLTPROC *proc,
                                           const float *real,
                                           const float *imaginary,
                                           float *output, float *overlap,
                                           const TOLV_COMPLEX *window)
{
    if (!usable(proc))
        return;
    const int m = proc->size;
    float *buf = proc->buffer;
    const float t = static_cast<float>(sqrt(2.0 * m));

    // DC and Nyquist are real; their fixed phases are those of the window
    // for M a multiple of four.
    buf[0] = endBin(real[0] + imaginary[0], kEndBinGain, t);
    buf[1] = 0.0f * t;
    unpairBins(real, imaginary, window, buf, m, t);
    buf[2 * m] = endBin(real[m - 1] + imaginary[m - 1], -kEndBinGain, t);
    buf[2 * m + 1] = 0.0f * t;

    fftwf_execute_dft_c2r(proc->inversePlan, asComplex(buf), buf);
    overlapAdd(buf, output, overlap, m);
}

extern "C" TOLV_API void TOLV_FMCLTCDTiv(_TOLV_FMCLTPROC *proc, float *block)
{
    if (!usable(proc))
        return;
    const int m = proc->size;
    // FFTW's unnormalised RODFT11 has gain sqrt(2 M) over the orthonormal
    // transform, which is then its own inverse.
    const float s = static_cast<float>(sqrt(2.0 * m));
    if (fftwf_alignment_of(block) == fftwf_alignment_of(proc->buffer)) {
        fftwf_execute_r2r(proc->sinePlan, block, block);
    } else {
        // The plan's SIMD kernels assume the planning array's alignment: a
        // block that lacks it goes through the work buffer instead.
        memcpy(proc->buffer, block, m * sizeof(float));
        fftwf_execute_r2r(proc->sinePlan, proc->buffer, proc->buffer);
        memcpy(block, proc->buffer, m * sizeof(float));
    }
    for (int k = 0; k < m; ++k)
        block[k] /= s;
}
