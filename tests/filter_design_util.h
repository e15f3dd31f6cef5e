/* Helpers of the filter design tests: root lists, responses computed from
 * roots in double, and the measured response of a running filter. */
#ifndef TOLV_FILTER_DESIGN_UTIL_H
#define TOLV_FILTER_DESIGN_UTIL_H

#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

#include "TOLVfilter/design.h"
#include "tolv.h"

/* A pair of root lists as the design driver sets them up: every entry with
 * all bits set (NaN) until a stage writes it. */
struct RootLists {
    int N;
    std::vector<_ROOT> poles, zeros;
    double gain = 0.0;

    explicit RootLists(int order, int entries = 0) : N(order)
    {
        const size_t n = entries > 0 ? (size_t)entries : (size_t)order;
        poles.resize(n);
        zeros.resize(n);
        std::memset(static_cast<void *>(poles.data()), 0xFF, n * sizeof(_ROOT));
        std::memset(static_cast<void *>(zeros.data()), 0xFF, n * sizeof(_ROOT));
    }
    _ROOT *p() { return poles.data(); }
    _ROOT *z() { return zeros.data(); }
};

inline bool IsAllOnes(const _ROOT &r)
{
    uint64_t bits[2];
    std::memcpy(bits, &r, sizeof bits);
    return bits[0] == ~0ull && bits[1] == ~0ull;
}

/* The N roots of a packed list, conjugates written out. */
inline std::vector<_ROOT> Unpack(const std::vector<_ROOT> &list, int N)
{
    std::vector<_ROOT> roots;
    for (size_t i = 0; (int)roots.size() < N && i < list.size(); i++) {
        roots.push_back(list[i]);
        if (list[i].imag() != 0.0 && (int)roots.size() < N)
            roots.push_back(std::conj(list[i]));
    }
    return roots;
}

/* K prod(x - zero) / prod(x - pole), finite zeros only: the analog
 * prototype at x = s, or a digital filter at x = z when the zeros at
 * infinity have already become -1. */
inline std::complex<double> RootResponse(const RootLists &r, int N,
                                         std::complex<double> x)
{
    std::complex<double> h = r.gain;
    for (const _ROOT &z : Unpack(r.zeros, N))
        if (std::isfinite(std::abs(z)))
            h *= x - z;
    for (const _ROOT &p : Unpack(r.poles, N))
        h /= x - p;
    return h;
}

inline double Db(double magnitude) { return 20.0 * std::log10(magnitude); }

/* Chebyshev polynomial T_n(x) for real x. */
inline double ChebyshevT(int n, double x)
{
    if (std::fabs(x) <= 1.0)
        return std::cos(n * std::acos(x));
    const double t = std::cosh(n * std::acosh(std::fabs(x)));
    return (x < 0 && (n & 1)) ? -t : t;
}

/* Frequency response of a biquad cascade at angle w (radians/sample). */
inline std::complex<double> SectionResponse(const double *sections, int S,
                                            double w)
{
    const std::complex<double> z1 = std::polar(1.0, -w), z2 = z1 * z1;
    std::complex<double> h = 1.0;
    for (int s = 0; s < S; s++) {
        const double *q = sections + 5 * s;
        h *= (q[2] + q[3] * z1 + q[4] * z2) / (1.0 + q[0] * z1 + q[1] * z2);
    }
    return h;
}

/* Impulse response of a one-channel filter, run through TOLV_Filter. */
inline std::vector<float> ImpulseResponse(_TOLV_FILTER *f, size_t length)
{
    std::vector<float> x(length, 0.0f), y(length, 0.0f);
    x[0] = 1.0f;
    TOLV_Filter(f, x.data(), y.data(), (uint32_t)length);
    return y;
}

/* Magnitude of the running filter at angles w, from its impulse response
 * (long enough for the filter to have died out). */
inline std::vector<double> MeasuredMagnitude(_TOLV_FILTER *f,
                                             const std::vector<double> &w,
                                             size_t length = 1 << 15)
{
    const std::vector<float> h = ImpulseResponse(f, length);
    std::vector<double> m;
    for (double wk : w) {
        std::complex<double> acc = 0.0;
        for (size_t n = 0; n < h.size(); n++)
            acc += (double)h[n] * std::polar(1.0, -wk * (double)n);
        m.push_back(std::abs(acc));
    }
    return m;
}

#endif
