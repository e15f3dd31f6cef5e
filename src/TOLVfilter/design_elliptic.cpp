/*
 * Elliptic (Cauer) analog lowpass prototype, passband edge 1 rad/s and
 * stopband edge `ratio` rad/s, in closed form.
 *
 * The Jacobi functions are never evaluated: everything follows from the nome
 * q of the selectivity k = 1 / ratio (a four-term series) and from quotients
 * of theta-function series in q. The stopband loss is whatever ratio, Ap and
 * N give; As is only required to be positive.
 */
#include <cmath>

#include "TOLVfilter/design.h"

namespace {

/* Generator of the series terms: t -> f(t * scale), with the first cosine
 * of the cosine-type sum (t = 2) taken from its own angle. */
struct Generator {
    bool hyperbolic; /* sinh/cosh of t * lambda, else sin/cos of t pi mu / N */
    double lambda;
    double mu;
    int N;

    double sine(double t) const
    {
        return hyperbolic ? sinh(t * lambda) : sin(t * M_PI * mu / N);
    }
    double cosine(double t) const
    {
        return hyperbolic ? cosh(t * lambda) : cos(t * M_PI * mu / N);
    }
    double firstCosine() const
    {
        return hyperbolic ? cosh(2.0 * lambda)
                          : cos(6.283185307179586 * mu / N);
    }
};

/* Relative change of a series sum. The old sum is divided by with its sign:
 * a sum that is negative ends after one more term, which is required. */
bool keepSumming(double oldSum, double newSum)
{
    return fabs(oldSum - newSum) / oldSum >= 1e-20;
}

/* Theta quotient |S 2 q^(1/4) / (1 + 2 U)| with
 *   S = sum over m >= 0 of (-1)^m q^(m (m + 1)) g(2m + 1)
 *   U = sum over m >= 1 of (-1)^m q^(m m) c(2m). */
double thetaQuotient(double q, const Generator &gen)
{
    double S = gen.sine(1.0);
    for (double m = 1.0;; m += 1.0) {
        const double next =
            gen.sine(2.0 * m + 1.0) * (pow(-1.0, m) * pow(q, (1.0 + m) * m)) +
            S;
        const bool more = keepSumming(S, next);
        S = next;
        if (!more)
            break;
    }
    double U = -q * gen.firstCosine();
    for (double m = 2.0;; m += 1.0) {
        const double next =
            gen.cosine(2.0 * m) * (pow(-1.0, m) * pow(q, m * m)) + U;
        const bool more = keepSumming(U, next);
        U = next;
        if (!more)
            break;
    }
    return fabs(S * (2.0 * pow(q, 0.25)) / (1.0 + 2.0 * U));
}

} // namespace

int _EllipticDesign(double, double ratio, double Ap, double As, int N,
                    _ROOT *poles, _ROOT *zeros, double *gain)
{
    if (!(ratio > 0.0) || !(Ap > 0.0) || !(As > 0.0))
        return 0;
    const double k = 1.0 / ratio;
    const double q = _EllipticNome(k);
    const double e = 0.05 * Ap;
    const double lambda = (1.0 / (static_cast<double>(N) + N)) *
                          log((pow(10.0, e) + 1.0) / (pow(10.0, e) - 1.0));

    const double sigma0 = thetaQuotient(q, Generator{true, lambda, 0.0, N});
    const double W =
        sqrt((1.0 + k * (sigma0 * sigma0)) * (1.0 + sigma0 * sigma0 / k));
    const double rootRatio = sqrt(ratio);

    const int h = N / 2;
    const int odd = N & 1;
    double K = 1.0;
    for (int i = 0; i < h; i++) {
        const double mu = odd ? i + 1.0 : i + 0.5;
        const double Omega = thetaQuotient(q, Generator{false, 0.0, mu, N});
        const double V =
            sqrt((1.0 - Omega * Omega / k) * (1.0 - k * (Omega * Omega)));
        /* Section s^2 + a0 over s^2 + b1 s + b0, in the scale where the
         * geometric mean of the two edges is 1. */
        const double a0 = 1.0 / (Omega * Omega);
        const double d = 1.0 + (sigma0 * sigma0) * (Omega * Omega);
        const double sV = sigma0 * V, OW = Omega * W;
        const double b0 = (sV * sV + OW * OW) / (d * d);
        const double b1 = 2.0 * sigma0 * V / d * rootRatio;
        const double z = sqrt(ratio * a0);
        zeros[i] = _ROOT(0.0 * z, z);
        const double R = sqrt(-(b1 * b1 - 4.0 * (ratio * b0)));
        poles[i] = _ROOT(0.5 * (0.0 * R - b1), 0.5 * R);
        K = (b0 / a0) * K;
    }
    if (odd) {
        poles[h] = _ROOT(rootRatio * -sigma0, 0.0);
        zeros[h] = _ROOT(HUGE_VAL, 0.0);
        K = rootRatio * sigma0 * K;
    } else {
        K = pow(10.0, -0.05 * Ap) * K;
    }
    *gain = K;
    return 1;
}

const _DESIGN_RECORD _Elliptic = {_EllipticOrder, _EllipticDesign};
