/*
 * Linear interpolation in a table with ascending abscissae, found by
 * bisection. Outside the table the first or last segment is extended.
 */
#include <math.h>

#include "tolv.h"

/* A table of one point has no segment and gives NaN; an empty table is
 * given the same answer rather than a read before its start. */
extern "C" TOLV_API float TOLVINTERPOLATE_Linear(const float *x, const float *y,
                                                 int count, float position)
{
    if (count <= 0)
        return NAN;
    int lo = 0;
    int hi = count - 1;
    while (hi - lo > 1) {
        const int mid = (hi + lo) >> 1;
        if (x[mid] > position)
            hi = mid;
        else
            lo = mid;
    }
    const float x0 = x[lo];
    const float t = (position - x0) / (x[hi] - x0);
    return (y[hi] - y[lo]) * t + y[lo];
}
