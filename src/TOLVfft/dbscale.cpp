/*
 * Spectrum scaling: the magnitude curve of a first-order pre-emphasis
 * filter, and power spectrum to decibels with a floor.
 *
 * The decibel conversion works on four bins at a time with a single-precision
 * logarithm (a degree-8 polynomial on the mantissa reduced to
 * [sqrt(1/2), sqrt(2)), with the exponent added back in two parts), and only
 * the Nyquist bin goes through the double log10. Every step below is one
 * float operation with its own rounding, in the order written.
 */
#include <emmintrin.h>
#include <math.h>
#include <stdint.h>
#include <string.h>

#include "tolv.h"

namespace {

__m128 _bits(uint32_t pattern)
{
    return _mm_castsi128_ps(_mm_set1_epi32((int)pattern));
}

/* Natural logarithm of four floats. Zero, negative and denormal inputs are
 * first raised to the smallest normal float so the exponent field stays
 * sound; the caller replaces their results. */
__m128 _log4f(__m128 x)
{
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 v = _mm_max_ps(x, _bits(0x00800000u));

    /* Exponent, biased so that the mantissa lands in [0.5, 1). */
    __m128i exponent = _mm_srli_epi32(_mm_castps_si128(v), 23);
    exponent = _mm_sub_epi32(exponent, _mm_set1_epi32(127));
    __m128 e = _mm_add_ps(_mm_cvtepi32_ps(exponent), one);
    __m128 m = _mm_and_ps(v, _bits(0x807FFFFFu));
    m = _mm_or_ps(m, _mm_set1_ps(0.5f));

    /* Below sqrt(1/2) take 2m - 1 and one less in the exponent, else m - 1:
     * f is then small and of either sign. */
    const __m128 low = _mm_cmplt_ps(m, _bits(0x3F3504F3u));
    const __m128 extra = _mm_and_ps(m, low);
    __m128 f = _mm_sub_ps(m, one);
    e = _mm_sub_ps(e, _mm_and_ps(one, low));
    f = _mm_add_ps(f, extra);

    const __m128 z = _mm_mul_ps(f, f);
    static const uint32_t poly[9] = {
        0x3D9021BBu, 0xBDEBD1B8u, 0x3DEF251Au, 0xBDFE5D4Fu, 0x3E11E9BFu,
        0xBE2AAE50u, 0x3E4CCEACu, 0xBE7FFFFCu, 0x3EAAAAAAu,
    };
    __m128 y = _bits(poly[0]);
    for (int k = 1; k < 9; k++)
        y = _mm_add_ps(_mm_mul_ps(y, f), _bits(poly[k]));
    y = _mm_mul_ps(_mm_mul_ps(y, f), z);

    /* ln 2 is split as q2 - q1 so that e * q2 is exact. */
    y = _mm_add_ps(y, _mm_mul_ps(e, _bits(0xB95E8083u)));
    y = _mm_sub_ps(y, _mm_mul_ps(z, _mm_set1_ps(0.5f)));
    return _mm_add_ps(_mm_add_ps(f, y), _mm_mul_ps(e, _bits(0x3F318000u)));
}

} // namespace

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

    const __m128 gain = _mm_set1_ps(g);
    const __m128 ref = _mm_set1_ps(r);
    const __m128 floor4 = _mm_set1_ps(floorDb);
    /* One unit in the last place below the float nearest log10(e). */
    uint32_t log10eBits = 0x3EDE5BD8u;
    float log10e;
    memcpy(&log10e, &log10eBits, sizeof(log10e));
    const __m128 toLog10 = _mm_set1_ps(log10e);
    const __m128 ten = _mm_set1_ps(10.0f);

    const int groups = half == 0 ? 0 : (half - 1) / 4 + 1;
    for (int k = 0; k < groups; k++) {
        __m128 x = _mm_mul_ps(_mm_load_ps(psd + 4 * k), gain);
        if (curve != nullptr) {
            const __m128 c = _mm_load_ps(curve + 4 * k);
            x = _mm_mul_ps(x, _mm_mul_ps(c, c));
        }
        x = _mm_mul_ps(x, ref);
        __m128 y = _mm_mul_ps(_mm_mul_ps(_log4f(x), toLog10), ten);
        /* Not greater than 0, or NaN: the floor. */
        const __m128 valid = _mm_cmpgt_ps(x, _mm_setzero_ps());
        y = _mm_or_ps(_mm_and_ps(valid, y), _mm_andnot_ps(valid, floor4));
        _mm_store_ps(db + 4 * k, _mm_max_ps(y, floor4));
    }

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
