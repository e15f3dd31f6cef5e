/*
 * Analysis windows: the table of eleven windows, their generators, the
 * lookups between names and type ids, window application and the two gain
 * measures.
 *
 * The cosine-sum generators accumulate the phase in double as a running sum
 * (not i * step), round each value once to float and store it at both ends
 * of the buffer, so the result is exactly symmetric. Some rows are kept as
 * they have always been shipped and must stay so: "Blackman" divides by N
 * (the rising half of a periodic window, reflected), the "Nuttal" and
 * "Blackman-Nuttall" rows carry each other's usual coefficient sets, and
 * "Flat-Top" is the unscaled five-term set peaking near 4.636.
 */
#include <math.h>
#include <stdint.h>
#include <string.h>

#include "keel.h"
#include "tolv.h"

namespace {

typedef void (*_WinGenerator)(float *window, uint64_t length);

struct _WinDef {
    int32_t type;
    char name[128];
    double normFactor; /* table data only; nothing reads it */
    _WinGenerator generator;
};

/*
 * Shared body of the cosine-sum windows. c[k] is cos((k + 1) x); at the
 * first sample every cosine is taken as exactly 1.0. Only the first Terms
 * cosines are evaluated. A mirrored window computes the first (n + 1) / 2
 * samples and stores each at w[i] and w[n - 1 - i]; at odd n the centre gets
 * the same value twice.
 */
template <int Terms, typename Expr>
void _cosine_window(float *w, uint64_t n, uint64_t divisor, bool mirrored,
                    Expr expr)
{
    if (n == 0)
        return;
    const double step = 6.283185307179586 / (double)divisor;
    const uint64_t count = mirrored ? (n + 1) / 2 : n;
    double x = 0.0;
    for (uint64_t i = 0; i < count; i++) {
        double c[4] = {1.0, 1.0, 1.0, 1.0};
        if (i != 0) {
            c[0] = cos(x);
            if (Terms >= 2)
                c[1] = cos(x + x);
            if (Terms >= 3)
                c[2] = cos(3.0 * x);
            if (Terms >= 4)
                c[3] = cos(4.0 * x);
        }
        const float v = (float)expr(c);
        w[i] = v;
        if (mirrored)
            w[n - 1 - i] = v;
        x += step;
    }
}

void _retangular(float *w, uint64_t n)
{
    for (uint64_t i = 0; i < n; i++)
        w[i] = 1.0f;
}

/* Symmetric triangle whose divisor is h - 1 for even and odd lengths alike:
 * at odd N = 2h + 1 the centre overshoots to h / (h - 1). */
void _triangular(float *w, uint64_t n)
{
    if (n == 0)
        return;
    const uint64_t h = n / 2;
    const double d = (double)(float)h - 1.0;
    for (uint64_t i = 0; i < (n + 1) / 2; i++) {
        const float v = (float)((double)(float)i / d);
        w[i] = v;
        w[n - 1 - i] = v;
    }
}

/* Rising ramp from 0 to exactly 1.0 at the last sample, all in float. */
void _halftriangular(float *w, uint64_t n)
{
    const float d = (float)((double)n - 1.0);
    for (uint64_t i = 0; i < n; i++)
        w[i] = (float)i / d;
}

void _hanning(float *w, uint64_t n)
{
    _cosine_window<1>(w, n, n - 1, true,
                      [](const double *c) { return (1.0 - c[0]) * 0.5; });
}

void _hanning_periodic(float *w, uint64_t n)
{
    _cosine_window<1>(w, n, n, false,
                      [](const double *c) { return 0.5 - 0.5 * c[0]; });
}

void _hamming(float *w, uint64_t n)
{
    _cosine_window<1>(w, n, n - 1, true,
                      [](const double *c) { return 0.54 - 0.46 * c[0]; });
}

void _blackman(float *w, uint64_t n)
{
    _cosine_window<2>(w, n, n, true, [](const double *c) {
        return (0.42 - 0.5 * c[0]) + 0.08 * c[1];
    });
}

void _blackman_harris(float *w, uint64_t n)
{
    _cosine_window<3>(w, n, n - 1, true, [](const double *c) {
        return ((0.35875 - 0.48829 * c[0]) + 0.14128 * c[1]) - 0.01168 * c[2];
    });
}

void _blackman_nuttall(float *w, uint64_t n)
{
    _cosine_window<3>(w, n, n - 1, true, [](const double *c) {
        return ((0.355768 - 0.487396 * c[0]) + 0.144232 * c[1]) -
               0.012604 * c[2];
    });
}

void _nuttal(float *w, uint64_t n)
{
    _cosine_window<3>(w, n, n - 1, true, [](const double *c) {
        return ((0.3635819 - 0.4891775 * c[0]) + 0.1365995 * c[1]) -
               0.0106411 * c[2];
    });
}

void _flap_top(float *w, uint64_t n)
{
    _cosine_window<4>(w, n, n - 1, true, [](const double *c) {
        return (((1.0 - 1.93 * c[0]) + 1.29 * c[1]) - 0.388 * c[2]) +
               0.028 * c[3];
    });
}

const _WinDef _WinDefTable[] = {
    {0, "Rectangular", 1.0, _retangular},
    {1, "Triangular", 0.5, _triangular},
    {2, "Half-Triangular", 0.5, _halftriangular},
    {3, "Hanning", 0.5009765625, _hanning},
    {4, "Hanning-Periodic", 0.5009765625, _hanning_periodic},
    {5, "Hamming", 0.5391015625, _hamming},
    {6, "Blackman", 0.41671875, _blackman},
    {7, "Blackman-Harris", 0.41671875, _blackman_harris},
    {8, "Blackman-Nuttall", 0.41671875, _blackman_nuttall},
    {9, "Nuttal", 0.41671875, _nuttal},
    {10, "Flat-Top", 0.41671875, _flap_top},
};

const _WinDef *_FindWindow(int type)
{
    for (const _WinDef &row : _WinDefTable)
        if (row.type == type)
            return &row;
    return nullptr;
}

} // namespace

/* A negative length is refused (0, nothing written): widened to an unsigned
 * count it would send the generator far past any buffer. */
extern "C" TOLV_API int TOLV_CreateWindow(int type, float *window, int length)
{
    if (window == nullptr)
        return 0;
    const _WinDef *row = _FindWindow(type);
    if (row == nullptr || length < 0)
        return 0;
    row->generator(window, (uint64_t)(int64_t)length);
    return 1;
}

extern "C" TOLV_API int TOLV_ApplyWindow(const float *window, float *frame,
                                         int length)
{
    for (int i = 0; i < length; i++)
        frame[i] = frame[i] * window[i];
    return 1;
}

/* Compared over the longer of the two lengths, so a prefix never matches:
 * "Hanning" is not taken for "Hanning-Periodic", and "Han" finds nothing. */
extern "C" TOLV_API int TOLV_GetWindowType(const char *name)
{
    const size_t nameLength = strlen(name);
    for (const _WinDef &row : _WinDefTable) {
        const size_t rowLength = strlen(row.name);
        const uint64_t count = rowLength > nameLength ? rowLength : nameLength;
        if (KEELSTRING_CompareInsensitiveN(row.name, name, count) == 0)
            return row.type;
    }
    return 0;
}

extern "C" TOLV_API const char *TOLV_GetWindowName(int type)
{
    const _WinDef *row = _FindWindow(type);
    return row ? row->name : nullptr;
}

/* The window's mean, summed in double from index 0 upward. */
extern "C" TOLV_API double TOLV_GetWindowNormFactor(const float *window,
                                                    int length)
{
    if (window == nullptr)
        return 0.0;
    double sum = 0.0;
    for (int i = 0; i < length; i++)
        sum += (double)window[i];
    return sum / (double)length;
}

/* Mean of the product of two windows; each product is formed in float. */
extern "C" TOLV_API double TOLV_GetTwoWindowNormFactor(const float *window1,
                                                       const float *window2,
                                                       int length)
{
    if (window1 == nullptr || window2 == nullptr)
        return 0.0;
    double sum = 0.0;
    for (int i = 0; i < length; i++) {
        const float product = window1[i] * window2[i];
        sum += (double)product;
    }
    return sum / (double)length;
}

/* A key that holds an unknown name gives 0 ("Rectangular"), not the
 * default: only an absent key falls back to the default type. */
extern "C" TOLV_API int TOLV_GetWindowTypeFromStringConfig(const char *config,
                                                           const char *key,
                                                           int defaultType)
{
    char name[128];
    if (KEELSTRING_GetStringValueFromString(config, key,
                                            TOLV_GetWindowName(defaultType),
                                            name, sizeof(name)) != 0)
        return TOLV_GetWindowType(name);
    return defaultType;
}
