/*
 * Auditory frequency scales: Mel by the natural-log formula, Bark by the
 * arctangent formula one way and by linear interpolation in a table of band
 * edges the other way. The two Bark directions are not inverses of each
 * other.
 */
#include <limits.h>
#include <math.h>

#include "tolv.h"

namespace {

/* Band edges in hertz at whole Bark numbers 0 to 24. */
const int bartFreq[25] = {0,    60,   150,  250,  350,  450,   570,  700,  840,
                          1000, 1170, 1370, 1600, 1850, 2150,  2500, 2900, 3400,
                          4000, 4800, 5800, 7000, 8500, 10500, 13500};

/* Truncation toward zero, saturated at the ends of int so that a Bark
 * number far outside the table stays on the first or last segment. NaN
 * gives INT_MIN; its result is NaN whatever the segment. */
int _TruncToInt(double value)
{
    if (value >= (double)INT_MAX)
        return INT_MAX;
    if (!(value > (double)INT_MIN))
        return INT_MIN;
    return (int)value;
}

} // namespace

extern "C" TOLV_API double TOLVUTIL_Freq2Mels(double hz)
{
    return 1127.01048 * log(hz / 700.0 + 1.0);
}

extern "C" TOLV_API double TOLVUTIL_Mels2Freq(double mels)
{
    return (exp(mels / 1127.01048) - 1.0) * 700.0;
}

/* Held flat below 1 Hz at the formula's value at 1 Hz. */
extern "C" TOLV_API double TOLVUTIL_Freq2Bark(double hz)
{
    if (hz < 1.0)
        return 0.009880060319993549;
    const double q = hz / 7500.0;
    return 13.0 * atan(0.00076 * hz) + 3.5 * atan(q * q);
}

/* The whole part of the Bark number is the table index; below 0 the first
 * segment and from 24 on the last segment are extended. */
extern "C" TOLV_API double TOLVUTIL_Bark2Freq(double bark)
{
    int lo = _TruncToInt(bark);
    if (lo < 0)
        lo = 0;
    else if (lo > 23)
        lo = 23;
    int hi = _TruncToInt(bark + 1.0);
    if (hi > 24)
        hi = 24;
    else if (hi <= 0)
        hi = 1;
    return (bark - lo) * (double)(bartFreq[hi] - bartFreq[lo]) +
           (double)bartFreq[lo];
}
