// Helpers of the filter tests: owned filters, bit patterns, message capture,
// root lists as the design driver sets them up, and magnitude responses.
#ifndef TOLV_FILTER_TEST_UTIL_H
#define TOLV_FILTER_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "TOLVfilter/design.h"
#include "TOLVfilter/filter.h"
#include "keel.h"
#include "support/signal.h"

using tolv_test::UniformNoise;
using FilterPtr = std::unique_ptr<_TOLV_FILTER, int (*)(_TOLV_FILTER *)>;

inline FilterPtr Own(_TOLV_FILTER *f)
{
    return FilterPtr(f, TOLV_DestroyFilter);
}
inline FilterPtr Coefs(int M, const std::vector<double> &b,
                       const std::vector<double> &a)
{
    return Own(
        TOLV_CreateFilterFromCoefs(M, b.size(), b.data(), a.size(), a.data()));
}
inline FilterPtr Biquads(int M, const std::vector<double> &q)
{
    static const double none[1] = {0};
    return Own(TOLV_CreateFilterFromBiquads(M, q.size() / 5,
                                            q.empty() ? none : q.data()));
}
inline _DFIIstate *DF(const FilterPtr &f)
{
    return (_DFIIstate *)f->stateData;
}
inline _DFIISOSstate *SOS(const FilterPtr &f)
{
    return (_DFIISOSstate *)f->stateData;
}

inline std::vector<float> Filtered(_TOLV_FILTER *f, const std::vector<float> &x)
{
    std::vector<float> y(x.size());
    TOLV_Filter(f, x.data(), y.data(), x.size());
    return y;
}

// Bit patterns, so that comparisons tell -0 from 0 and see NaNs.
inline std::vector<uint32_t> Bits(const std::vector<float> &x)
{
    std::vector<uint32_t> u(x.size());
    std::memcpy(u.data(), x.data(), x.size() * sizeof(float));
    return u;
}

// Collects the library's reports while alive; every one must be an error
// with code -1.
struct MessageLog {
    std::vector<std::string> texts;
    MessageLog() { KEELDEBUG_SetMessageHandler(Collect, this); }
    ~MessageLog() { KEELDEBUG_SetMessageHandler(nullptr, nullptr); }
    static void Collect(int level, int code, const char *message, void *user)
    {
        EXPECT_TRUE(level == KEEL_LEVEL_ERROR && code == -1) << message;
        ((MessageLog *)user)->texts.push_back(message);
    }
};

// Root lists with every entry all ones (NaN) until a stage writes it.
struct RootLists {
    int N;
    std::vector<_ROOT> poles, zeros;
    double gain = 0.0;
    explicit RootLists(int order, int entries = 0)
        : N(order), poles(entries ? entries : order), zeros(poles.size())
    {
        std::memset((void *)poles.data(), 0xFF, poles.size() * sizeof(_ROOT));
        std::memset((void *)zeros.data(), 0xFF, zeros.size() * sizeof(_ROOT));
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

// gain prod(x - zero) / prod(x - pole) over the N roots of the packed lists,
// zeros at infinity left out.
inline std::complex<double> RootResponse(const RootLists &r,
                                         std::complex<double> x, int N = 0)
{
    std::complex<double> h = r.gain;
    for (int list = 0; list < 2; list++)
        for (int count = 0, i = 0; count < (N ? N : r.N); i++) {
            const _ROOT root = (list ? r.poles : r.zeros)[i];
            std::complex<double> f = x - root;
            if (root.imag() != 0.0)
                f *= x - std::conj(root);
            count += root.imag() != 0.0 ? 2 : 1;
            if (list)
                h /= f;
            else if (std::isfinite(std::abs(root)))
                h *= f;
        }
    return h;
}

inline double Db(double magnitude)
{
    return 20.0 * std::log10(magnitude);
}

// Magnitude of a running one-channel filter at angles w, from an impulse
// response long enough for the filter to have died out.
inline std::vector<double> MeasuredMagnitude(_TOLV_FILTER *f,
                                             const std::vector<double> &w,
                                             size_t length = 1 << 15)
{
    std::vector<float> x(length, 0.0f);
    x[0] = 1.0f;
    const std::vector<float> h = Filtered(f, x);
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
