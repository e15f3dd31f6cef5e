/*
 * Order estimates: how high an order a lowpass prototype needs so that the
 * loss stays below Ap up to the passband edge 1 and reaches As from the
 * stopband edge `ratio` on.
 *
 * The two intermediate values of the Butterworth and Chebyshev estimates are
 * narrowed to floats, and the order is the truncated quotient plus one (not a
 * ceiling: an exact whole quotient gives one more).
 */
#include <cmath>

#include "TOLVfilter/design.h"

double _LossRatio(double Ap, double As)
{
    return (pow(10.0, As / 10.0) - 1.0) / (pow(10.0, Ap / 10.0) - 1.0);
}

double _EllipticNome(double k)
{
    const double kc = sqrt(1.0 - k * k);
    const double s = sqrt(kc);
    const double q0 = 0.5 * (1.0 - s) / (1.0 + s);
    return q0 + 2.0 * pow(q0, 5.0) + 15.0 * pow(q0, 9.0) +
           150.0 * pow(q0, 13.0);
}

int _ButterworthOrder(double, double ratio, double Ap, double As)
{
    if (ratio <= 0.0 || Ap <= 0.0 || As <= 0.0)
        return -1;
    const float a = static_cast<float>(log10(_LossRatio(Ap, As)));
    const float n =
        static_cast<float>(static_cast<double>(a) / (2.0 * log10(ratio)));
    return _TruncToInt32(n) + 1;
}

/* Shared by the two Chebyshev types: both meet the same loss at the same
 * pair of edges with the same order. */
static int chebyshevOrder(double ratio, double Ap, double As)
{
    if (ratio <= 0.0 || Ap <= 0.0 || As <= 0.0)
        return -1;
    const float a = static_cast<float>(acosh(sqrt(_LossRatio(Ap, As))));
    const float n = static_cast<float>(static_cast<double>(a) / acosh(ratio));
    return _TruncToInt32(n) + 1;
}

int _ChebyshevOrder(double, double ratio, double Ap, double As)
{
    return chebyshevOrder(ratio, Ap, As);
}

int _ChebyshevIIOrder(double, double ratio, double Ap, double As)
{
    return chebyshevOrder(ratio, Ap, As);
}

/* No argument test: a missing stopband (ratio -1) still gives an order from
 * Ap and As, and the design refuses it later. */
int _EllipticOrder(double, double ratio, double Ap, double As)
{
    const double q = _EllipticNome(1.0 / ratio);
    const double D = (pow(10.0, 0.1 * As) - 1.0) / (pow(10.0, 0.1 * Ap) - 1.0);
    return _TruncToInt32(1.0 + log10(16.0 * D) / log10(1.0 / q));
}
