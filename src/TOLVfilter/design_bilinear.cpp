/*
 * From the analog prototype to the digital filter for a lowpass or highpass:
 * one bilinear step z = (1 + s) / (1 - s), which puts the prototype's edge
 * (1 rad/s) at angle pi/2, then a first-order z-plane transformation that
 * moves angle pi/2 to the requested edge.
 *
 * Both steps keep the gain at a reference point: each list's roots are
 * measured from the reference before (A) and after (B) the mapping, and the
 * gain is corrected by the quotient of the products.
 */
#include <cmath>

#include "TOLVfilter/design.h"

namespace {

/* A / B products of the poles (index 0) and zeros (index 1). */
struct GainProducts {
    double before[2] = {1.0, 1.0};
    double after[2] = {1.0, 1.0};

    double apply(double gain) const
    {
        return (after[0] * before[1]) / (after[1] * before[0]) * gain;
    }
};

} // namespace

void _BilinearPrototype(int N, _ROOT *poles, _ROOT *zeros, double *gain)
{
    GainProducts g;
    _ROOT *lists[2] = {poles, zeros};
    for (int l = 0; l < 2; l++) {
        _WalkRoots(lists[l], N, [&](_ROOT &entry) {
            const _ROOT s = entry;
            if (!std::isfinite(std::abs(s))) {
                /* A root at infinity maps to Nyquist. */
                entry = _ROOT(-1.0, 0.0);
                g.after[l] *= 2.0;
                return 1;
            }
            g.before[l] *= std::abs(-s);
            if (s.imag() != 0.0)
                g.before[l] *= std::abs(-s);
            const _ROOT z = (1.0 + s) / (1.0 - s);
            entry = z;
            g.after[l] *= _DistanceProduct(1.0, z);
            return z.imag() != 0.0 ? 2 : 1;
        });
    }
    *gain = g.apply(*gain);
}

void _TransformLowHigh(bool highpass, float fpass, int N, _ROOT *poles,
                       _ROOT *zeros, double *gain)
{
    const double w = M_PI * static_cast<double>(fpass);
    double sw, cw;
    sincos(w, &sw, &cw);
    const _ROOT edge(cw, sw);
    const double alpha =
        highpass ? -cos((M_PI / 2 - w) * 0.5) / cos((M_PI / 2 + w) * 0.5)
                 : sin((M_PI / 2 - w) * 0.5) / sin((M_PI / 2 + w) * 0.5);

    GainProducts g;
    _ROOT *lists[2] = {poles, zeros};
    for (int l = 0; l < 2; l++) {
        _WalkRoots(lists[l], N, [&](_ROOT &entry) {
            const _ROOT z = entry;
            g.before[l] *= _DistanceProduct(_QuarterTurn, z);
            /* z' = (z + alpha) / (1 + alpha z), negated for the highpass. */
            const _ROOT num(z.real() + alpha, z.imag());
            const _ROOT den(1.0 + alpha * z.real(), alpha * z.imag());
            _ROOT zt =
                highpass ? _ROOT(-num.real(), -num.imag()) / den : num / den;
            /* Images outside the unit circle (every highpass root, and the
             * right-half-plane prototypes) are reflected back inside; the
             * gain correction makes up for the constant it changes. */
            if (std::abs(zt) > 1.0)
                zt = 1.0 / zt;
            entry = zt;
            g.after[l] *= _DistanceProduct(edge, zt);
            return zt.imag() != 0.0 ? 2 : 1;
        });
    }
    *gain = g.apply(*gain);
}
