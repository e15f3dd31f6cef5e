/*
 * Closed-form analog lowpass prototypes: Butterworth, Chebyshev type I and
 * type II (inverse Chebyshev), passband edge at 1 rad/s.
 *
 * Pole pairs are stored once, with their positive-imaginary member, and an
 * odd order adds the real pole behind them. K is the gain of
 * H(s) = K prod(s - z) / prod(s - p) over all finite zeros and all poles.
 */
#include <cmath>

#include "TOLVfilter/design.h"
#include "keel.h"

static const double kInfinity = HUGE_VAL;

/* Angle of the i-th pole pair: (2i + 1) pi / 2N. */
static double poleAngle(int i, int N)
{
    return (2.0 * i + 1.0) * M_PI / (2.0 * static_cast<double>(N));
}

/* Ripple factor eps of a passband loss of Ap dB at the edge. */
static double rippleFactor(double Ap)
{
    return sqrt(pow(10.0, Ap / 10.0) - 1.0);
}

/* Semi-axes sinh(v), cosh(v) of the ellipse on which Chebyshev poles lie,
 * v = asinh(1 / eps) / N. */
static void poleEllipse(double eps, int N, double *sh, double *ch)
{
    const double v = (1.0 / N) * asinh(1.0 / eps);
    *sh = sinh(v);
    *ch = cosh(v);
}

static double squaredMagnitude(const _ROOT &r)
{
    return r.real() * r.real() + r.imag() * r.imag();
}

static void zerosAtInfinity(int N, _ROOT *zeros)
{
    for (int i = 0; i < N; i++)
        zeros[i] = _ROOT(kInfinity, 0.0);
}

int _ButterworthDesign(double, double, double Ap, double, int N, _ROOT *poles,
                       _ROOT *zeros, double *gain)
{
    if (Ap <= 0.0 || N <= 0)
        return 0;
    /* eps is carried as a float: the circle's radius follows from it. */
    const double eps =
        static_cast<double>(static_cast<float>(rippleFactor(Ap)));
    const double R = pow(eps, -1.0 / N);
    const int h = N / 2;
    double K = 1.0;
    for (int i = 0; i < h; i++) {
        double s, c;
        sincos(poleAngle(i, N), &s, &c);
        poles[i] = _ROOT(-R * s, R * c);
        K = squaredMagnitude(poles[i]) * K;
    }
    if (N & 1) {
        poles[h] = _ROOT(-R * sin(poleAngle(h, N)), 0.0);
        K = fabs(poles[h].real()) * K;
    }
    zerosAtInfinity(N, zeros);
    *gain = K;
    return 1;
}

/* The poles are the mirror images of the usual ones, in the right half
 * plane. The magnitude on the imaginary axis is the same, and the z-plane
 * transformations reflect roots outside the unit circle back inside. */
int _ChebyshevDesign(double, double, double Ap, double, int N, _ROOT *poles,
                     _ROOT *zeros, double *gain)
{
    if (Ap <= 0.0 || N <= 0)
        return 0;
    double sh, ch;
    poleEllipse(rippleFactor(Ap), N, &sh, &ch);
    const int h = N / 2;
    double K = 1.0;
    for (int i = 0; i < h; i++) {
        double s, c;
        sincos(poleAngle(i, N), &s, &c);
        poles[i] = _ROOT(sh * s, ch * c);
        K = squaredMagnitude(poles[i]) * K;
    }
    if (N & 1) {
        poles[h] = _ROOT(sh * sin(poleAngle(h, N)), 0.0);
        K = fabs(poles[h].real()) * K;
    }
    zerosAtInfinity(N, zeros);
    /* An even order starts at the bottom of the ripple at s = 0. */
    if (!(N & 1))
        K = pow(10.0, -Ap / 20.0) * K;
    *gain = K;
    return 1;
}

int _ChebyshevIIDesign(double, double ratio, double Ap, double As, int N,
                       _ROOT *poles, _ROOT *zeros, double *gain)
{
    if (Ap <= 0.0 || N <= 0)
        return 0;
    /* Stopband loss exponent a (the loss is 10 a dB at the edge `ratio`),
     * from whichever of As and the stopband edge was given. */
    double a;
    if (As <= 0.0 && ratio <= 0.0) {
        KEELDEBUG_Error(
            -1,
            "TOLV_CreateFilter: Type II Chebyshev filters require fstop or As");
        return 0;
    } else if (ratio <= 0.0) {
        ratio = cosh(acosh(sqrt(_LossRatio(Ap, As))) / N);
        a = As / 10.0;
    } else if (As <= 0.0) {
        const double T = cosh(N * acosh(ratio));
        const double L = log10(pow(10.0, Ap / 10.0) - 1.0);
        a = (T * T * (10.0 * L) + 1.0) / 10.0;
    } else {
        a = As / 10.0;
    }
    const double E = sqrt(pow(10.0, a) - 1.0);
    double sh, ch;
    poleEllipse(1.0 / E, N, &sh, &ch);
    const int h = N / 2;
    double K = 1.0;
    for (int i = 0; i < h; i++) {
        double s, c;
        sincos(poleAngle(i, N), &s, &c);
        zeros[i] = _ROOT((0.0 * ratio) / c, ratio / c);
        poles[i] = _ROOT(ratio, 0.0) / _ROOT(-sh * s, -ch * c);
        K = (squaredMagnitude(poles[i]) / squaredMagnitude(zeros[i])) * K;
    }
    if (N & 1) {
        poles[h] = _ROOT(ratio / (sin(poleAngle(h, N)) * sh), 0.0);
        zeros[h] = _ROOT(kInfinity, 0.0);
        K = fabs(poles[h].real()) * K;
    }
    *gain = K;
    return 1;
}

const _DESIGN_RECORD _Butterworth = {_ButterworthOrder, _ButterworthDesign};
const _DESIGN_RECORD _Chebyshev = {_ChebyshevOrder, _ChebyshevDesign};
const _DESIGN_RECORD _ChebyshevII = {_ChebyshevIIOrder, _ChebyshevIIDesign};
