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
typedef double _D2 __attribute__((vector_size(16)));
typedef double _D4 __attribute__((vector_size(32))); /* inside helpers only */
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

/* Lanes 0-1 or 2-3 widened to double, and two doubles each rounded to
 * float and joined into four lanes (low half first). Going through four
 * doubles lets the compiler find the widening and narrowing instructions
 * that work on register halves (cvtps2pd, fcvtl2, fcvtn2). */
static inline _D2 _WidenLow(_F4 v)
{
    const _D4 w = __builtin_convertvector(v, _D4);
    return __builtin_shufflevector(w, w, 0, 1);
}
static inline _D2 _WidenHigh(_F4 v)
{
    const _D4 w = __builtin_convertvector(v, _D4);
    return __builtin_shufflevector(w, w, 2, 3);
}
static inline _F4 _Narrow(_D2 lo, _D2 hi)
{
    return __builtin_convertvector(__builtin_shufflevector(lo, hi, 0, 1, 2, 3),
                                   _F4);
}

/* A few operations that the generic vectors lack, or that the compiler does
 * not find in them every time, name the processor's own instruction where
 * there is one. Each branch gives the same bits. */

/* True when any lane of a comparison mask is set. */
static inline bool _AnyLane(_I4 mask)
{
#if defined(__SSE2__)
    return _mm_movemask_ps((__m128)mask) != 0;
#else
    const _L2 halves = (_L2)mask;
    return (halves[0] | halves[1]) != 0;
#endif
}

/* Larger of a and b as x86's maxps gives it: b when either is NaN (or when
 * they are equal). */
static inline _F4 _MaxF4(_F4 a, _F4 b)
{
#if defined(__SSE2__)
    return (_F4)_mm_max_ps((__m128)a, (__m128)b);
#else
    return a > b ? a : b;
#endif
}

/* Correctly rounded square root of each lane (IEEE fixes its result). */
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

/* Index lists for __builtin_shufflevector over P float lanes (P = 4, 8 or
 * 16), for kernels built once per width: _TOLV_SHUFFLE(EVEN, P) and ODD
 * take interleaved pairs of two vectors apart, ZIP_LO and ZIP_HI put two
 * vectors back together, DUP_EVEN, DUP_ODD and SWAP repeat or swap the
 * members of each pair of one vector, and LO, HI and ALL pick the halves
 * of P lanes or join two halves. */
#define _TOLV_SHUFFLE(name, P)  _TOLV_SHUFFLE_(name, P)
#define _TOLV_SHUFFLE_(name, P) _TOLV_##name##_##P
#define _TOLV_EVEN_4            0, 2, 4, 6
#define _TOLV_EVEN_8            0, 2, 4, 6, 8, 10, 12, 14
#define _TOLV_EVEN_16           0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30
#define _TOLV_ODD_4             1, 3, 5, 7
#define _TOLV_ODD_8             1, 3, 5, 7, 9, 11, 13, 15
#define _TOLV_ODD_16            1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31
#define _TOLV_ZIP_LO_4          0, 4, 1, 5
#define _TOLV_ZIP_LO_8          0, 8, 1, 9, 2, 10, 3, 11
#define _TOLV_ZIP_LO_16         0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23
#define _TOLV_ZIP_HI_4          2, 6, 3, 7
#define _TOLV_ZIP_HI_8          4, 12, 5, 13, 6, 14, 7, 15
#define _TOLV_ZIP_HI_16                                                        \
    8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31
#define _TOLV_DUP_EVEN_4  0, 0, 2, 2
#define _TOLV_DUP_EVEN_8  0, 0, 2, 2, 4, 4, 6, 6
#define _TOLV_DUP_EVEN_16 0, 0, 2, 2, 4, 4, 6, 6, 8, 8, 10, 10, 12, 12, 14, 14
#define _TOLV_DUP_ODD_4   1, 1, 3, 3
#define _TOLV_DUP_ODD_8   1, 1, 3, 3, 5, 5, 7, 7
#define _TOLV_DUP_ODD_16  1, 1, 3, 3, 5, 5, 7, 7, 9, 9, 11, 11, 13, 13, 15, 15
#define _TOLV_SWAP_4      1, 0, 3, 2
#define _TOLV_SWAP_8      1, 0, 3, 2, 5, 4, 7, 6
#define _TOLV_SWAP_16     1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14
#define _TOLV_LO_4        0, 1
#define _TOLV_LO_8        0, 1, 2, 3
#define _TOLV_LO_16       0, 1, 2, 3, 4, 5, 6, 7
#define _TOLV_HI_4        2, 3
#define _TOLV_HI_8        4, 5, 6, 7
#define _TOLV_HI_16       8, 9, 10, 11, 12, 13, 14, 15
#define _TOLV_ALL_4       0, 1, 2, 3
#define _TOLV_ALL_8       0, 1, 2, 3, 4, 5, 6, 7
#define _TOLV_ALL_16      0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15

/* How wide a vector the processor runs: 0 for the baseline (SSE2, NEON), 1
 * for AVX2, 2 for AVX-512F; never above a cap set by _TOLV_CapVectorLevel
 * (a negative cap lifts it). Kernels built for the wider sets are chosen
 * from it at run time; every width gives the same bits. */
int _TOLV_VectorLevel(void);
void _TOLV_CapVectorLevel(int cap);

/* The kernel `kernel` of the widest float lanes the processor has, for
 * kernels built in namespaces lanes4 (baseline), lanes8 (AVX2) and lanes16
 * (AVX-512F). */
#if defined(__x86_64__)
#define _TOLV_WIDEST_F32(kernel)                                               \
    (_TOLV_VectorLevel() == 2   ? lanes16::kernel                              \
     : _TOLV_VectorLevel() == 1 ? lanes8::kernel                               \
                                : lanes4::kernel)
#else
#define _TOLV_WIDEST_F32(kernel) lanes4::kernel
#endif

/* Functions defined between _TOLV_TARGET_BEGIN("avx2") (or "avx512f") and
 * _TOLV_TARGET_END are built for that instruction set alone; they may only
 * run where _TOLV_VectorLevel says the processor has it. */
#define _TOLV_PRAGMA(text) _Pragma(#text)
#if defined(__clang__)
#define _TOLV_TARGET_BEGIN(isa)                                                \
    _TOLV_PRAGMA(clang attribute push(__attribute__((target(isa))),            \
                                      apply_to = function))
#define _TOLV_TARGET_END _TOLV_PRAGMA(clang attribute pop)
#else
#define _TOLV_TARGET_BEGIN(isa)                                                \
    _TOLV_PRAGMA(GCC push_options) _TOLV_PRAGMA(GCC target(isa))
#define _TOLV_TARGET_END _TOLV_PRAGMA(GCC pop_options)
#endif

#endif
