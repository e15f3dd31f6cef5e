/* Interpolating cubic splines through a table of points: the second
 * derivatives at the knots once per table, then evaluation at any abscissa.
 * Storage and differences are f32; the divisions that drive the recurrences
 * run in double. */
#include <math.h>
#include <stdlib.h>

#include "keel.h"
#include "tolv.h"

/* A boundary slope beyond 9.9e29, tested in double, asks for a natural end
 * (second derivative 0); any other value, NaN included, is the slope. */
static inline bool _SplineNaturalEnd(float slope)
{
    return (double)slope > 9.9e29;
}

/* Solves the tridiagonal system of the spline: forward elimination, with the
 * multipliers kept in secondDerivatives and the right-hand sides in the work
 * array u, then back substitution. */
extern "C" TOLV_API void TOLVSPLINE_Estimate(const float *x, const float *y,
                                             int n, float *secondDerivatives,
                                             float firstSlope, float lastSlope)
{
    if (n < 2) {
        KEELDEBUG_Log(-1, "TOLVSPLINE_Estimate: Spline estimation must have 2 "
                          "or more points");
        return;
    }
    float *q = secondDerivatives;
    /* One right-hand side per knot but the last. */
    float *u = (float *)malloc((size_t)(n - 1) * sizeof(float));

    if (_SplineNaturalEnd(firstSlope)) {
        q[0] = 0.0f;
        u[0] = 0.0f;
    } else {
        /* Clamped end: the first derivative at x[0] is given. */
        float h = x[1] - x[0];
        q[0] = -0.5f;
        u[0] = (float)((3.0 / (double)h) *
                       (double)((y[1] - y[0]) / h - firstSlope));
    }

    for (int i = 1; i < n - 1; i++) {
        float sig = (x[i] - x[i - 1]) / (x[i + 1] - x[i - 1]);
        float p = sig * q[i - 1] + 2.0f;
        q[i] = (float)(((double)sig - 1.0) / (double)p);
        float d = (y[i + 1] - y[i]) / (x[i + 1] - x[i]) -
                  (y[i] - y[i - 1]) / (x[i] - x[i - 1]);
        float carried = sig * u[i - 1];
        u[i] = (float)(((double)d * 6.0 / (double)(x[i + 1] - x[i - 1]) -
                        (double)carried) /
                       (double)p);
    }

    float qn = 0.0f;
    float un = 0.0f;
    if (!_SplineNaturalEnd(lastSlope)) {
        /* Clamped end: the first derivative at x[n - 1] is given. */
        float h = x[n - 1] - x[n - 2];
        qn = 0.5f;
        un = (float)((3.0 / (double)h) *
                     (double)(lastSlope - (y[n - 1] - y[n - 2]) / h));
    }
    float numerator = un - qn * u[n - 2];
    float coupling = qn * q[n - 2];
    q[n - 1] = (float)((double)numerator / (1.0 + (double)coupling));

    for (int k = n - 2; k >= 0; k--)
        q[k] = q[k] * q[k + 1] + u[k];
    free(u);
}

extern "C" TOLV_API float TOLVSPLINE_Interpolate(const float *x, const float *y,
                                                 const float *secondDerivatives,
                                                 int n, float position)
{
    /* Without a knot there is no interval to read. */
    if (n < 1)
        return NAN;
    const float *q = secondDerivatives;
    /* Bisection from scratch: a position on a knot belongs to the interval on
     * its right, a NaN walks to the last interval. */
    int lo = 0;
    int hi = n - 1;
    while (hi - lo > 1) {
        int mid = (hi + lo) >> 1;
        if (x[mid] > position)
            hi = mid;
        else
            lo = mid;
    }
    float h = x[hi] - x[lo];
    float a = (x[hi] - position) / h;
    float b = (position - x[lo]) / h;
    float linear = y[lo] * a + y[hi] * b;
    float curve = (b * b * b - b) * q[hi] + (a * a * a - a) * q[lo];
    float bend = h * h * curve;
    return (float)((double)bend / 6.0 + (double)linear);
}
