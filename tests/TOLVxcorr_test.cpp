/* Cross-correlation: a direct sum in double and a replay of the float and
 * double roundings, delays, the PHAT zero rule, coefficient and refusals. */
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <utility>

#include "lanes.h"
#include "spectral_test_support.h"
#include "tolv.h"

namespace {

using tolv_test::UniformNoise;

struct Xcorr {
    Xcorr(int la, int lb) : p(TOLV_XcorrProcCreate(la, lb)) {}
    ~Xcorr() { TOLV_XcorrProcDestroy(p); }
    std::vector<float> Run(const std::vector<float> &a,
                           const std::vector<float> &b, bool phat)
    {
        std::vector<float> r(TOLV_XcorrVectorLength(p), -999.0f);
        EXPECT_EQ((int)r.size(),
                  (phat ? TOLV_XcorrPhatProcess : TOLV_XcorrProcExecute)(
                      p, a.data(), b.data(), r.data()));
        return r;
    }
    _TOLV_XCORRPROC *p;
};

/* The correlation replayed on the library's FFT processors: cross spectrum
 * and scale in float, PHAT weight in double from float squares, the lags
 * rotated to ascending order. */
std::vector<float> Replay(const std::vector<float> &a,
                          const std::vector<float> &b, bool phat)
{
    const int m = std::max(a.size(), b.size()), n = 2 * m;
    _TOLV_FFTPROC *fft = TOLV_FFTProcCreate(n), *ifft = TOLV_IFFTProcCreate(n);
    TOLV_COMPLEX *sa = TOLV_CreateComplexVector(fft),
                 *sb = TOLV_CreateComplexVector(fft);
    spectral_test::GuardedFloats t(n, 0); /* aligned as the plans want */
    for (auto [x, s] : {std::pair{&a, sa}, std::pair{&b, sb}}) {
        std::fill(std::copy(x->begin(), x->end(), t.data), t.data + n, 0.0f);
        TOLV_FFTProcExecute(fft, t.data, s);
    }
    const float scale = phat ? 1.0f / (float)n : 1.0f / ((float)m * (float)n);
    for (int k = 0; k <= m; ++k) {
        const float re = sa[k].im * sb[k].im + sa[k].re * sb[k].re;
        const float im = sa[k].im * sb[k].re - sb[k].im * sa[k].re;
        const double mag = std::sqrt((double)(re * re + im * im));
        const double weight = mag > 0.0 ? scale / mag : 1.0;
        sa[k] = phat ? TOLV_COMPLEX{(float)(re * weight), (float)(im * weight)}
                     : TOLV_COMPLEX{re * scale, im * scale};
    }
    TOLV_IFFTProcExecuteEx(ifft, sa, t.data, false);
    std::vector<float> r(t.data + m + 1, t.data + n);
    r.insert(r.end(), t.data, t.data + m);
    TOLV_DestroyComplexVector(sa), TOLV_DestroyComplexVector(sb);
    TOLV_FFTProcDestroy(fft), TOLV_FFTProcDestroy(ifft);
    return r;
}

/* Per pair of lengths: 2 M - 1 lags; the plain form is the sum of
 * a[n + L] b[n] / M within FFT rounding; both forms equal the replay to the
 * bit (at M = 4097, M x 2 M is not a float), also on a used processor and
 * at every vector width, and leave the inputs as they were. */
TEST(Xcorr, MatchesTheDirectSumAndTheReplayToTheBit)
{
    // clang-format off
    const int lengths[][2] = {{100, 60}, {60, 100}, {3, 5}, {5, 3}, {1, 1}, {2, 1}, {7, 7}, {1000, 999}, {4097, 4000}};
    // clang-format on
    for (const auto &l : lengths) {
        const int la = l[0], lb = l[1], m = std::max(la, lb);
        Xcorr x(la, lb);
        EXPECT_EQ(2 * m - 1, TOLV_XcorrVectorLength(x.p));
        const auto a = UniformNoise(la, la, 3.0f),
                   b = UniformNoise(lb, 1000 + lb, 0.01f);
        const double tol = 6e-8 * (1.0 + std::log2(2.0 * m)) *
                           tolv_test::Norm2(a) * tolv_test::Norm2(b) / m;
        for (bool phat : {false, true}) {
            x.Run(UniformNoise(la, 1, 1e3f), UniformNoise(lb, 2, 1e3f), phat);
            const auto r = x.Run(a, b, phat);
            ASSERT_EQ(Replay(a, b, phat), r) << la << "," << lb << phat;
            for (int level = 0; level < _TOLV_VectorLevel(); ++level) {
                _TOLV_CapVectorLevel(level); /* every narrower width */
                EXPECT_EQ(x.Run(a, b, phat), r) << la << "," << lb << level;
                _TOLV_CapVectorLevel(-1);
            }
            ASSERT_TRUE(a == UniformNoise(la, la, 3.0f) &&
                        b == UniformNoise(lb, 1000 + lb, 0.01f));
            for (int lag = 1 - m; lag < m && !phat; ++lag) {
                double s = 0.0;
                for (int n = std::max(0, -lag); n < lb && n + lag < la; ++n)
                    s += (double)a[n + lag] * b[n];
                ASSERT_NEAR(s / m, r[lag + m - 1], tol) << la << "," << lb;
            }
        }
    }
    EXPECT_EQ(-1, TOLV_XcorrVectorLength(nullptr));
}

/* b is a delayed by d: both forms and the coefficient put the peak at lag
 * -d, the pair the other way round at d; the coefficient is 1 at d = 0,
 * below 1 for a delayed copy, the same with b negated (the peak is taken by
 * magnitude), and NaN for a silent vector. */
TEST(Xcorr, DelayAndCoefficient)
{
    for (int m : {1000, 1024})
        for (int d : {0, 1, 37, 250}) {
            const auto source = UniformNoise(m + 300, 77 + m);
            const std::vector<float> a(&source[d], &source[d + m]);
            std::vector<float> b(&source[0], &source[m]), neg(m);
            Xcorr x(m, m);
            for (bool phat : {false, true}) {
                const auto r = x.Run(a, b, phat); /* a positive peak */
                EXPECT_EQ(m - 1 - d,
                          std::max_element(r.begin(), r.end()) - r.begin());
            }
            int lag = 99, back = 99;
            const double c = TOLV_XcorrCoef(a.data(), m, b.data(), m, &lag);
            TOLV_XcorrCoef(b.data(), m, a.data(), m, &back);
            EXPECT_TRUE(lag == -d && back == d &&
                        (d ? c > 0.7 && c < 1 : fabs(c - 1) < 1e-6))
                << c;
            std::transform(b.begin(), b.end(), neg.begin(), std::negate<>());
            EXPECT_NEAR(c, TOLV_XcorrCoef(a.data(), m, neg.data(), m, nullptr),
                        1e-6);
        }
    std::vector<float> zero(32, 0.0f), a = UniformNoise(32, 3);
    EXPECT_TRUE(
        std::isnan(TOLV_XcorrCoef(a.data(), 32, zero.data(), 32, nullptr)));
}

/* Silence stays zero under the weight of 1; an impulse with itself is 1 at
 * lag 0; squares of 1e-20 are subnormal, still weighted in full; bins of
 * 9e-26, whose float squares underflow, keep their value at weight 1 without
 * the 1 / (2 M), so lag 0 holds 2 M times the bin. */
TEST(Xcorr, PhatZeroRule)
{
    const int m = 16;
    Xcorr x(m, m);
    for (float v : {0.0f, 1.0f, 1e-10f, 3e-13f}) {
        std::vector<float> s(m, 0.0f);
        s[0] = v;
        const auto r = x.Run(s, s, true);
        const double peak = v == 0 ? 0 : v < 1e-12f ? 2.0 * m * (v * v) : 1;
        for (int i = 0; i < 2 * m - 1; ++i)
            ASSERT_NEAR(i == m - 1 ? peak : 0.0, r[i], 2e-5 * peak) << v << i;
    }
}

/* Null vectors give -1, leave the lag and say which; lengths without room
 * for the spectra, or whose 2 M passes 32 bits, are reported and give an
 * object whose calls compute nothing; empty and null processors are inert.
 * No memory descriptor is left behind. */
TEST(Xcorr, RefusalsAndReports)
{
    const int before = KEELMEM_LiveDescriptorCount();
    std::vector<float> a = UniformNoise(8, 1);
    tolv_test::Messages messages;
    int lag = 12345;
    EXPECT_EQ(-1.0, TOLV_XcorrCoef(nullptr, 8, nullptr, 8, &lag));
    EXPECT_EQ(-1.0, TOLV_XcorrCoef(a.data(), 8, nullptr, 8, &lag));
    const std::string coef = "2 -1 TOLV_XcorrCoef: Invalid vector ";
    EXPECT_EQ(coef + "x\n\n" + coef + "y\n\n", messages.All());
    const std::string refused =
        "2 -1 TOLVXcorrProcCreate: Erro na alocacao dos vetores!\n\n";
    const int cases[][3] = {
        {-5, -3, -7}, {0x40000000, 1, -1}, {1, INT32_MAX, -1}, {0, 0, -1}};
    for (const auto &c : cases) {
        messages.Clear();
        float r[1] = {4.0f};
        _TOLV_XCORRPROC *p = TOLV_XcorrProcCreate(c[0], c[1]);
        EXPECT_EQ(c[0] ? refused : "", messages.All());
        EXPECT_TRUE(TOLV_XcorrVectorLength(p) == c[2] &&
                    TOLV_XcorrProcExecute(p, r, r, r) == c[2] &&
                    TOLV_XcorrPhatProcess(p, r, r, r) == c[2] &&
                    TOLV_XcorrProcDestroy(p) == 1);
        EXPECT_TRUE(c[2] != -1 || c[0] == 0 ||
                    TOLV_XcorrCoef(r, c[0], r, c[1], &lag) == -1.0);
        EXPECT_TRUE(r[0] == 4.0f && lag == 12345);
    }
    EXPECT_TRUE(
        TOLV_XcorrProcExecute(nullptr, a.data(), a.data(), a.data()) == -1 &&
        TOLV_XcorrPhatProcess(nullptr, a.data(), a.data(), a.data()) == -1 &&
        TOLV_XcorrProcDestroy(nullptr) == 1);
    _TOLV_XCORRPROC *p = TOLV_XcorrProcCreate(100, 60); /* owner comes first */
    EXPECT_STREQ("XCorr Memory", KEELMEM_GetName(*(KEEL_MEMDESCR *)p));
    TOLV_XcorrProcDestroy(p);
    EXPECT_EQ(before, KEELMEM_LiveDescriptorCount());
}

} // namespace
