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

#include "tolv.h"

namespace {

inline __m128 _bits(uint32_t pattern)
{
    return _mm_castsi128_ps(_mm_set1_epi32((int)pattern));
}

/* Natural logarithm of four floats. Zero, negative and denormal inputs are
 * first raised to the smallest normal float so the exponent field stays
 * sound; the caller replaces their results. */
inline __attribute__((always_inline)) __m128 _log4f(__m128 x)
{
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 v = _mm_max_ps(x, _bits(0x00800000u));

    /* Mantissa m in [0.5, 1) and exponent e with v = m 2^e. Below
     * sqrt(1/2) take f = 2m - 1 and one less in the exponent, else
     * f = m - 1: f is then small and of either sign. The exponent is formed
     * in integers, (field - 127) + 1 less the mask's -1; every value is a
     * small integer, so converting once gives the same float as converting
     * first and adding and subtracting 1.0 in float. */
    __m128 m = _mm_and_ps(v, _bits(0x807FFFFFu));
    m = _mm_or_ps(m, _mm_set1_ps(0.5f));
    const __m128 low = _mm_cmplt_ps(m, _bits(0x3F3504F3u));
    __m128i exponent = _mm_srli_epi32(_mm_castps_si128(v), 23);
    exponent = _mm_sub_epi32(exponent, _mm_set1_epi32(126));
    exponent = _mm_add_epi32(exponent, _mm_castps_si128(low));
    const __m128 e = _mm_cvtepi32_ps(exponent);
    __m128 f = _mm_sub_ps(m, one);
    f = _mm_add_ps(f, _mm_and_ps(m, low));

    const __m128 z = _mm_mul_ps(f, f);
    __m128 y = _bits(0x3D9021BBu);
    y = _mm_add_ps(_mm_mul_ps(y, f), _bits(0xBDEBD1B8u));
    y = _mm_add_ps(_mm_mul_ps(y, f), _bits(0x3DEF251Au));
    y = _mm_add_ps(_mm_mul_ps(y, f), _bits(0xBDFE5D4Fu));
    y = _mm_add_ps(_mm_mul_ps(y, f), _bits(0x3E11E9BFu));
    y = _mm_add_ps(_mm_mul_ps(y, f), _bits(0xBE2AAE50u));
    y = _mm_add_ps(_mm_mul_ps(y, f), _bits(0x3E4CCEACu));
    y = _mm_add_ps(_mm_mul_ps(y, f), _bits(0xBE7FFFFCu));
    y = _mm_add_ps(_mm_mul_ps(y, f), _bits(0x3EAAAAAAu));
    y = _mm_mul_ps(_mm_mul_ps(y, f), z);

    /* ln 2 is split as q2 + q1, q1 small and negative, so that e * q2 is
     * exact. */
    y = _mm_add_ps(y, _mm_mul_ps(e, _bits(0xB95E8083u)));
    y = _mm_sub_ps(y, _mm_mul_ps(z, _mm_set1_ps(0.5f)));
    return _mm_add_ps(_mm_add_ps(f, y), _mm_mul_ps(e, _bits(0x3F318000u)));
}

/* The dB figures of four bins: scale, weight, logarithm, floor. */
struct _DbGroup {
    __m128 gain, ref, floor, toLog10, ten;
    const float *curve;

    inline __attribute__((always_inline)) __m128 operator()(const float *psd,
                                                            int i) const
    {
        __m128 x = _mm_mul_ps(_mm_load_ps(psd + i), gain);
        if (curve != nullptr) {
            const __m128 c = _mm_load_ps(curve + i);
            x = _mm_mul_ps(x, _mm_mul_ps(c, c));
        }
        x = _mm_mul_ps(x, ref);
        __m128 y = _mm_mul_ps(_mm_mul_ps(_log4f(x), toLog10), ten);
        /* Not greater than 0, or NaN: all bits set make the lane a NaN, and
         * the maximum then gives its second operand, the floor. */
        y = _mm_or_ps(y, _mm_cmpngt_ps(x, _mm_setzero_ps()));
        return _mm_max_ps(y, floor);
    }
};

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

    /* One unit in the last place below the float nearest log10(e). */
    const _DbGroup group = {_mm_set1_ps(g),        _mm_set1_ps(r),
                            _mm_set1_ps(floorDb),  _bits(0x3EDE5BD8u),
                            _mm_set1_ps(10.0f),    curve};
    /* Groups of four up to and past H when H is not a multiple of 4; two
     * groups a round keep two independent polynomial chains in flight. */
    const int end = half == 0 ? 0 : 4 * ((half - 1) / 4 + 1);
    int i = 0;
    for (; i + 16 <= end; i += 16) {
        const __m128 a = group(psd, i);
        const __m128 b = group(psd, i + 4);
        const __m128 c = group(psd, i + 8);
        const __m128 d = group(psd, i + 12);
        _mm_store_ps(db + i, a);
        _mm_store_ps(db + i + 4, b);
        _mm_store_ps(db + i + 8, c);
        _mm_store_ps(db + i + 12, d);
    }
    for (; i < end; i += 4)
        _mm_store_ps(db + i, group(psd, i));

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
