/*
 * Lane vectors shared by the vector kernels, in the compiler's generic
 * vector types: the same source becomes SSE2 on x86-64 and NEON on arm64.
 * Every lane-wise operation is one IEEE operation with its own rounding, so
 * a kernel written with them gives the same bits on every machine as long
 * as it keeps its order of operations (and nothing is contracted into fused
 * multiply-adds, which the build forbids).
 *
 * Memory is only reached through the load and store helpers, which copy
 * through memcpy: no alignment is assumed and no aliasing rule is bent.
 */
#ifndef TOLV_LANES_H
#define TOLV_LANES_H

#include <math.h>
#include <stdint.h>
#include <string.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

typedef float _F4 __attribute__((vector_size(16)));
typedef int32_t _I4 __attribute__((vector_size(16)));
typedef float _F2 __attribute__((vector_size(8)));
typedef double _D2 __attribute__((vector_size(16)));
typedef int64_t _L2 __attribute__((vector_size(16)));

static inline _F4 _LoadF4(const float *p)
{
    _F4 v;
    memcpy(&v, p, sizeof(v));
    return v;
}
static inline void _StoreF4(float *p, _F4 v)
{
    memcpy(p, &v, sizeof(v));
}
static inline _D2 _LoadD2(const double *p)
{
    _D2 v;
    memcpy(&v, p, sizeof(v));
    return v;
}
static inline void _StoreD2(double *p, _D2 v)
{
    memcpy(p, &v, sizeof(v));
}

/* Interleaved pairs (re0 im0 re1 im1 | re2 im2 re3 im3) taken apart into
 * their first members and their second members, and put back together. */
static inline _F4 _EvenLanes(_F4 lo, _F4 hi)
{
    return __builtin_shufflevector(lo, hi, 0, 2, 4, 6);
}
static inline _F4 _OddLanes(_F4 lo, _F4 hi)
{
    return __builtin_shufflevector(lo, hi, 1, 3, 5, 7);
}
static inline _F4 _InterleaveLow(_F4 a, _F4 b)
{
    return __builtin_shufflevector(a, b, 0, 4, 1, 5);
}
static inline _F4 _InterleaveHigh(_F4 a, _F4 b)
{
    return __builtin_shufflevector(a, b, 2, 6, 3, 7);
}

/* Lanes 0-1 or 2-3 widened to double, and two doubles each rounded to
 * float and joined into four lanes (low half first). */
static inline _D2 _WidenLow(_F4 v)
{
    return __builtin_convertvector(__builtin_shufflevector(v, v, 0, 1), _D2);
}
static inline _D2 _WidenHigh(_F4 v)
{
    return __builtin_convertvector(__builtin_shufflevector(v, v, 2, 3), _D2);
}
static inline _F4 _Narrow(_D2 lo, _D2 hi)
{
    const _F2 l = __builtin_convertvector(lo, _F2);
    const _F2 h = __builtin_convertvector(hi, _F2);
    return __builtin_shufflevector(l, h, 0, 1, 2, 3);
}

/* Lane-wise choice: a where the mask lane is all ones, else b. */
static inline _D2 _Select(_L2 mask, _D2 a, _D2 b)
{
    return (_D2)((mask & (_L2)a) | (~mask & (_L2)b));
}

/* True when any lane of a comparison mask is set. */
static inline bool _AnyLane(_I4 mask)
{
    _L2 halves = (_L2)mask;
    return (halves[0] | halves[1]) != 0;
}

/* Correctly rounded square root of each lane. The generic vectors have no
 * square root, so the processor's own instruction is named where there is
 * one; IEEE fixes its result, so every branch gives the same bits. */
static inline _D2 _SqrtD2(_D2 v)
{
#if defined(__SSE2__)
    return (_D2)_mm_sqrt_pd((__m128d)v);
#elif defined(__aarch64__)
    return (_D2)vsqrtq_f64((float64x2_t)v);
#else
    return _D2{sqrt(v[0]), sqrt(v[1])};
#endif
}

/* Float to 32-bit integer by truncation as x86's cvtt instructions give it
 * on every machine: NaN and values out of range give INT32_MIN rather than
 * undefined behaviour (a plain cast of such a value is undefined, and arm64
 * would saturate instead). */
static inline int32_t _TruncToInt32(double value)
{
    if (value > -2147483649.0 && value < 2147483648.0)
        return (int32_t)value;
    return INT32_MIN;
}
static inline int32_t _TruncToInt32(float value)
{
    return _TruncToInt32((double)value);
}

#endif
