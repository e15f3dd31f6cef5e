/*
 * Spectrum scaling: the magnitude curve of a first-order pre-emphasis
 * filter, and power spectrum to decibels with a floor.
 *
 * The decibel conversion works on groups of four bins with a
 * single-precision logarithm (a degree-8 polynomial on the mantissa reduced
 * to [sqrt(1/2), sqrt(2)), with the exponent added back in two parts), and
 * only the Nyquist bin goes through the double log10. The lanes are
 * independent, so a processor with eight float lanes takes two groups at
 * once and gets the same bits.
 */
#if defined(__x86_64__)
#include <immintrin.h>
#endif
#include <math.h>
#include <stdint.h>
#include <string.h>

#include "TOLVfft/dbscale.h"
#include "lanes.h"
#include "tolv.h"

/* Lane vectors: four lanes from lanes.h, eight for x86-64's AVX2 and
 * sixteen for its AVX-512.
 * Memory is only reached through _load and _store, which assume no
 * alignment. Values of eight lanes only live inside inlined code, so their
 * calling convention is moot. */
#pragma GCC diagnostic ignored "-Wpsabi"
typedef float _F8 __attribute__((vector_size(32), aligned(16)));
typedef int32_t _I8 __attribute__((vector_size(32), aligned(16)));
typedef float _F16 __attribute__((vector_size(64), aligned(16)));
typedef int32_t _I16 __attribute__((vector_size(64), aligned(16)));

static inline float _bits(uint32_t pattern)
{
    float value;
    memcpy(&value, &pattern, sizeof(value));
    return value;
}

/* The one lane kernel, built for the baseline instruction set, four lanes at
 * a time, and on x86-64 once more for processors with eight float lanes
 * (AVX2) and sixteen (AVX-512), chosen at run time. */
#define _DB_LANES 4
namespace {
namespace lanes4 {
#include "TOLVfft/dblanes.inc"
}
} // namespace
#undef _DB_LANES

#if defined(__x86_64__)
#define _DB_LANES 8
_TOLV_TARGET_BEGIN("avx2")
namespace {
namespace lanes8 {
#include "TOLVfft/dblanes.inc"
}
} // namespace
_TOLV_TARGET_END
_TOLV_TARGET_BEGIN("avx512f")
#undef _DB_LANES
#define _DB_LANES 16
namespace {
namespace lanes16 {
#include "TOLVfft/dblanes.inc"
}
} // namespace
_TOLV_TARGET_END
#undef _DB_LANES

int _TOLV_DbWidestLanes(void)
{
    return 4 << _TOLV_VectorLevel();
}

void _TOLV_DbVector(const _TOLV_DbArgs &args, int end, int lanes)
{
    if (lanes == 16)
        lanes16::_dbRun(args, end);
    else if (lanes == 8)
        lanes8::_dbRun(args, end);
    else
        lanes4::_dbRun(args, end);
}
#else
int _TOLV_DbWidestLanes(void)
{
    return 4;
}

void _TOLV_DbVector(const _TOLV_DbArgs &args, int end, int)
{
    lanes4::_dbRun(args, end);
}
#endif

/* |1 - a e^{-jw}| at the H + 1 bins of a frame of N samples, from 1 - a at
 * DC to 1 + a at Nyquist. */
extern "C" TOLV_API int TOLV_CreatePreEmphAdjust(float *curve, int frameLength,
                                                 double coefficient)
{
    const int half = frameLength / 2;
    if (half < 0)
        return 1;
    const double twoA = coefficient + coefficient;
    const double aa = coefficient * coefficient;
    const double h = (double)half;
    for (int i = 0; i <= half; i++) {
        const double c = cos(((double)i / h) * 3.141592653589793);
        const double v = aa + (1.0 - c * twoA);
        curve[i] = (float)sqrt(v);
    }
    return 1;
}

extern "C" TOLV_API int TOLV_PSDtoDB(int frameLength, const float *psd,
                                     float *db, const float *curve,
                                     double reference, double range)
{
    if (psd == nullptr || db == nullptr || frameLength <= 0)
        return 0;
    const int half = frameLength >> 1;
    const float halfF = (float)half;
    const float g = 1.0f / (halfF * halfF);
    /* The reference enters through its square root: the square of a power
     * reference acts as a plain power reference. */
    const float r = 1.0f / sqrtf((float)reference);
    const float floorDb = -(float)range;

    /* Groups of four up to and past H when H is not a multiple of 4. The
     * lanes are independent, so eight at a time give the same bits where
     * the processor has them. */
    const _TOLV_DbArgs args = {psd, db, curve, g, r, floorDb};
    const int end = half == 0 ? 0 : 4 * ((half - 1) / 4 + 1);
    _TOLV_DbVector(args, end, _TOLV_DbWidestLanes());

    /* The Nyquist bin, always in double. */
    const double x = (double)(psd[half] * g);
    const double w =
        curve != nullptr ? (double)(curve[half] * curve[half]) : 1.0;
    if (x > 0.0) {
        const double y = log10((double)r * (w * x)) * 10.0;
        db[half] = (float)(y > -range ? y : -range);
    } else {
        db[half] = (float)-range;
    }
    return 1;
}
