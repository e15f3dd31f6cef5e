// Cross-correlation processors: values against direct sums in double, delay
// estimation with and without PHAT weighting, the weighting's zero rule, the
// coefficient with its lag, and the messages of refused arguments.
#include <gtest/gtest.h>

#include <fftw3.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "keel.h"
#include "support/signal.h"
#include "tolv.h"

namespace {

using tolv_test::Norm2;
using tolv_test::UniformNoise;

struct Message {
    int level;
    int code;
    std::string text;
};

void collect(int level, int code, const char *message, void *user)
{
    static_cast<std::vector<Message> *>(user)->push_back(
        {level, code, message});
}

// Captures the base library's messages for the length of a test.
class Messages : public ::testing::Test {
  protected:
    void SetUp() override { KEELDEBUG_SetMessageHandler(collect, &seen); }
    void TearDown() override { KEELDEBUG_SetMessageHandler(nullptr, nullptr); }
    std::vector<Message> seen;
};

struct Xcorr {
    Xcorr(int la, int lb) : p(TOLV_XcorrProcCreate(la, lb)) {}
    ~Xcorr() { TOLV_XcorrProcDestroy(p); }
    _TOLV_XCORRPROC *p;
};

// A rising tone with some noise: a voiced, non-stationary test signal.
std::vector<float> chirpPlusNoise(int n, unsigned seed)
{
    auto v = UniformNoise(n, seed, 0.3f);
    for (int i = 0; i < n; ++i) {
        const double phase = 2.0 * M_PI * (0.01 * i + 0.2 * i * i / (2.0 * n));
        v[i] += static_cast<float>(0.8 * std::sin(phase));
    }
    return v;
}

// Sum over n of a[n + L] b[n] / M for L = -(M - 1) .. M - 1.
std::vector<double> directCorrelation(const std::vector<float> &a,
                                      const std::vector<float> &b)
{
    const int la = a.size(), lb = b.size(), m = std::max(la, lb);
    std::vector<double> r(2 * m - 1, 0.0);
    for (int lag = -(m - 1); lag <= m - 1; ++lag) {
        double s = 0.0;
        for (int n = 0; n < lb; ++n)
            if (n + lag >= 0 && n + lag < la)
                s += static_cast<double>(a[n + lag]) * b[n];
        r[lag + m - 1] = s / m;
    }
    return r;
}

int peakIndex(const std::vector<float> &r)
{
    int best = 0;
    for (size_t i = 1; i < r.size(); ++i)
        if (std::fabs(r[i]) > std::fabs(r[best]))
            best = i;
    return best;
}

std::vector<float> run(_TOLV_XCORRPROC *p, const std::vector<float> &a,
                       const std::vector<float> &b, bool phat)
{
    std::vector<float> r(TOLV_XcorrVectorLength(p), -999.0f);
    const int n = phat ? TOLV_XcorrPhatProcess(p, a.data(), b.data(), r.data())
                       : TOLV_XcorrProcExecute(p, a.data(), b.data(), r.data());
    EXPECT_EQ(n, static_cast<int>(r.size()));
    return r;
}

TEST(XcorrLength, IsTwiceTheLongerInputLessOne)
{
    const struct {
        int la, lb, expected;
    } cases[] = {{100, 60, 199}, {60, 100, 199},     {3, 5, 9},
                 {1, 1, 1},      {4096, 4096, 8191}, {1001, 7, 2001}};
    for (const auto &c : cases) {
        Xcorr x(c.la, c.lb);
        EXPECT_EQ(TOLV_XcorrVectorLength(x.p), c.expected)
            << c.la << "," << c.lb;
    }
    EXPECT_EQ(TOLV_XcorrVectorLength(nullptr), -1);
}

TEST(XcorrMemory, OneNamedDescriptorPerProcessorAndNoneLeftBehind)
{
    const int before = KEELMEM_LiveDescriptorCount();
    _TOLV_XCORRPROC *p = TOLV_XcorrProcCreate(100, 60);
    EXPECT_EQ(KEELMEM_LiveDescriptorCount(), before + 1);
    // The descriptor that owns everything is the object's first field.
    KEEL_MEMDESCR memory = *reinterpret_cast<KEEL_MEMDESCR *>(p);
    EXPECT_STREQ(KEELMEM_GetName(memory), "XCorr Memory");
    EXPECT_EQ(KEELMEM_GetObjectCount(memory), 5);
    EXPECT_EQ(TOLV_XcorrProcDestroy(p), 1);
    EXPECT_EQ(KEELMEM_LiveDescriptorCount(), before);

    auto a = UniformNoise(50, 1), b = UniformNoise(70, 2);
    int lag = 0;
    TOLV_XcorrCoef(a.data(), 50, b.data(), 70, &lag);
    EXPECT_EQ(KEELMEM_LiveDescriptorCount(), before);
}

TEST(XcorrPlain, MatchesTheDirectSumInDouble)
{
    const struct {
        int la, lb;
    } cases[] = {{100, 60}, {60, 100}, {3, 5},      {5, 3},      {1, 1},
                 {2, 1},    {7, 7},    {1000, 999}, {4096, 4096}};
    for (const auto &c : cases) {
        Xcorr x(c.la, c.lb);
        auto a = UniformNoise(c.la, c.la), b = UniformNoise(c.lb, 1000 + c.lb);
        const auto r = run(x.p, a, b, false);
        const auto ref = directCorrelation(a, b);
        const int m = std::max(c.la, c.lb);
        // Float FFT rounding grows with log2 of the length and is bounded by
        // the product of the input norms.
        const double tol =
            6e-8 * (1.0 + std::log2(2.0 * m)) * Norm2(a) * Norm2(b) / m;
        ASSERT_EQ(r.size(), ref.size());
        for (size_t i = 0; i < r.size(); ++i)
            ASSERT_NEAR(r[i], ref[i], tol) << c.la << "," << c.lb << " i=" << i;
    }
}

TEST(XcorrPlain, EveryCallStartsFromCleanBuffers)
{
    // A second call must not see anything of the first: its result equals
    // that of a fresh processor to the bit, and the inputs stay as they were.
    for (bool phat : {false, true}) {
        for (auto [la, lb] : {std::pair{3, 5}, std::pair{100, 60}}) {
            Xcorr used(la, lb), fresh(la, lb);
            run(used.p, UniformNoise(la, 1, 1000.0f),
                UniformNoise(lb, 2, 1000.0f), phat);
            const auto a = UniformNoise(la, 3), b = UniformNoise(lb, 4);
            const auto aCopy = a, bCopy = b;
            EXPECT_EQ(run(used.p, a, b, phat), run(fresh.p, a, b, phat))
                << phat << " " << la << "," << lb;
            EXPECT_EQ(a, aCopy);
            EXPECT_EQ(b, bCopy);
        }
    }
}

// The correlation replayed one stage at a time on the library's own FFT
// processors: the cross spectrum and its scale in float, the PHAT weight in
// double from float squares. Results must agree to the last bit.
std::vector<float> replay(const std::vector<float> &a,
                          const std::vector<float> &b, bool phat)
{
    const int m = std::max(a.size(), b.size()), n = 2 * m;
    _TOLV_FFTPROC *fft = TOLV_FFTProcCreate(n), *ifft = TOLV_IFFTProcCreate(n);
    TOLV_COMPLEX *sa = TOLV_CreateComplexVector(fft);
    TOLV_COMPLEX *sb = TOLV_CreateComplexVector(fft);
    float *time = static_cast<float *>(fftwf_malloc(n * sizeof(float)));
    std::fill(time, time + n, 0.0f);
    std::copy(a.begin(), a.end(), time);
    TOLV_FFTProcExecute(fft, time, sa);
    std::fill(time, time + n, 0.0f);
    std::copy(b.begin(), b.end(), time);
    TOLV_FFTProcExecute(fft, time, sb);
    const float scale =
        phat ? 1.0f / static_cast<float>(n)
             : 1.0f / (static_cast<float>(m) * static_cast<float>(n));
    for (int k = 0; k <= m; ++k) {
        const float re = sa[k].im * sb[k].im + sa[k].re * sb[k].re;
        const float im = sa[k].im * sb[k].re - sb[k].im * sa[k].re;
        if (!phat) {
            sa[k] = {re * scale, im * scale};
            continue;
        }
        const double mag = std::sqrt(static_cast<double>(re * re + im * im));
        const double weight = mag > 0.0 ? scale / mag : 1.0;
        sa[k] = {static_cast<float>(re * weight),
                 static_cast<float>(im * weight)};
    }
    TOLV_IFFTProcExecuteEx(ifft, sa, time, false);
    std::vector<float> r(time + m + 1, time + n);
    r.insert(r.end(), time, time + m);
    fftwf_free(time);
    TOLV_DestroyComplexVector(sa);
    TOLV_DestroyComplexVector(sb);
    TOLV_FFTProcDestroy(fft);
    TOLV_FFTProcDestroy(ifft);
    return r;
}

TEST(XcorrPrecision, EveryStageRoundsWhereItShould)
{
    // At M = 4097 the product M x 2 M is not a float: the scale must come
    // from the float product.
    for (auto [la, lb] : {std::pair{100, 60}, std::pair{3, 5}, std::pair{1, 1},
                          std::pair{1000, 1000}, std::pair{4097, 4000}}) {
        Xcorr x(la, lb);
        auto a = UniformNoise(la, 11 + la, 3.0f),
             b = UniformNoise(lb, 12 + lb, 0.01f);
        for (bool phat : {false, true})
            ASSERT_EQ(run(x.p, a, b, phat), replay(a, b, phat))
                << la << "," << lb << " phat=" << phat;
    }
}

TEST(XcorrDelay, PeakFallsAtMinusTheDelay)
{
    // The second vector is the first delayed by d: b[n] = a[n - d].
    for (int m : {1000, 1024}) {
        for (int kind = 0; kind < 2; ++kind) {
            const auto source = kind == 0 ? UniformNoise(m + 300, 77)
                                          : chirpPlusNoise(m + 300, 78);
            for (int d : {0, 1, 37, 250}) {
                std::vector<float> a(source.begin() + d,
                                     source.begin() + d + m);
                std::vector<float> b(source.begin(), source.begin() + m);
                Xcorr x(m, m);
                for (bool phat : {false, true})
                    EXPECT_EQ(peakIndex(run(x.p, a, b, phat)), m - 1 - d)
                        << "M=" << m << " signal=" << kind << " d=" << d
                        << " phat=" << phat;
            }
        }
    }
}

TEST(XcorrPhat, ZeroRuleOfTheWeighting)
{
    const int m = 16;
    Xcorr x(m, m);
    auto impulse = [&](float v) {
        std::vector<float> s(m, 0.0f);
        s[0] = v;
        return s;
    };
    // Silence: every bin is exactly zero, keeps weight 1, and stays zero.
    for (float v : run(x.p, impulse(0.0f), impulse(0.0f), true))
        ASSERT_EQ(v, 0.0f);

    // A unit impulse with itself: every bin weighs 1 / (2 M), so lag 0 is 1.
    auto r = run(x.p, impulse(1.0f), impulse(1.0f), true);
    EXPECT_NEAR(r[m - 1], 1.0f, 1e-6);

    // Squares of 1e-20 are subnormal but not zero: still weighted in full,
    // with no floor on the magnitude.
    r = run(x.p, impulse(1e-10f), impulse(1e-10f), true);
    EXPECT_NEAR(r[m - 1], 1.0f, 2e-5);

    // Bins of about 9e-26 whose float squares underflow to zero keep their
    // tiny value at weight 1, without the 1 / (2 M): lag 0 holds the
    // unnormalised inverse's 2 M times the bin.
    const float v = 3e-13f;
    r = run(x.p, impulse(v), impulse(v), true);
    const double bin = static_cast<double>(v * v);
    EXPECT_NEAR(r[m - 1], 2 * m * bin, 1e-5 * 2 * m * bin);
    for (int i = 0; i < 2 * m - 1; ++i) {
        if (i == m - 1)
            continue;
        ASSERT_NEAR(r[i], 0.0, 1e-6 * 2 * m * bin) << i;
    }
}

TEST(XcorrCoefficient, ItselfAndItsNegativeGiveOneAtLagZero)
{
    for (int m : {1, 5, 256, 1000}) {
        auto a = UniformNoise(m, 60 + m), neg = a;
        for (float &v : neg)
            v = -v;
        int lag = 99;
        EXPECT_NEAR(TOLV_XcorrCoef(a.data(), m, a.data(), m, &lag), 1.0, 1e-6)
            << m;
        EXPECT_EQ(lag, 0);
        lag = 99;
        EXPECT_NEAR(TOLV_XcorrCoef(a.data(), m, neg.data(), m, &lag), 1.0, 1e-6)
            << m;
        EXPECT_EQ(lag, 0);
        EXPECT_NEAR(TOLV_XcorrCoef(a.data(), m, neg.data(), m, nullptr), 1.0,
                    1e-6);
    }
}

TEST(XcorrCoefficient, LagOfADelayedCopy)
{
    const int m = 2000;
    auto source = chirpPlusNoise(m + 100, 9);
    for (int d : {1, 13, 99}) {
        std::vector<float> a(source.begin() + d, source.begin() + d + m);
        std::vector<float> b(source.begin(), source.begin() + m);
        int lag = 0;
        const double c = TOLV_XcorrCoef(a.data(), m, b.data(), m, &lag);
        EXPECT_EQ(lag, -d);
        EXPECT_GT(c, 0.9);
        EXPECT_LT(c, 1.0);
        // The pair in the other order: the lag changes sign.
        TOLV_XcorrCoef(b.data(), m, a.data(), m, &lag);
        EXPECT_EQ(lag, d);
    }
}

TEST(XcorrCoefficient, SilenceDividesZeroByZero)
{
    std::vector<float> zero(32, 0.0f), a = UniformNoise(32, 3);
    EXPECT_TRUE(
        std::isnan(TOLV_XcorrCoef(zero.data(), 32, zero.data(), 32, nullptr)));
    EXPECT_TRUE(
        std::isnan(TOLV_XcorrCoef(a.data(), 32, zero.data(), 32, nullptr)));
}

using XcorrMessages = Messages;

TEST_F(XcorrMessages, NullVectorsGiveMinusOneAndLeaveTheLag)
{
    const int before = KEELMEM_LiveDescriptorCount();
    std::vector<float> a = UniformNoise(8, 1);
    const struct {
        const float *x, *y;
        const char *text;
    } cases[] = {{nullptr, a.data(), "TOLV_XcorrCoef: Invalid vector x\n"},
                 {a.data(), nullptr, "TOLV_XcorrCoef: Invalid vector y\n"},
                 {nullptr, nullptr, "TOLV_XcorrCoef: Invalid vector x\n"}};
    for (const auto &c : cases) {
        seen.clear();
        int lag = 12345;
        EXPECT_EQ(TOLV_XcorrCoef(c.x, 8, c.y, 8, &lag), -1.0);
        EXPECT_EQ(lag, 12345);
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_EQ(seen[0].level, KEEL_LEVEL_ERROR);
        EXPECT_EQ(seen[0].code, -1);
        EXPECT_EQ(seen[0].text, c.text);
    }
    EXPECT_EQ(KEELMEM_LiveDescriptorCount(), before);
}

TEST_F(XcorrMessages, RefusedSpectraAreReportedAndTheObjectStillServes)
{
    // Negative lengths leave no room for the spectra; the constructor says
    // so and returns the object, whose calls then have nothing to compute.
    _TOLV_XCORRPROC *p = TOLV_XcorrProcCreate(-5, -3);
    ASSERT_NE(p, nullptr);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].level, KEEL_LEVEL_ERROR);
    EXPECT_EQ(seen[0].code, -1);
    EXPECT_EQ(seen[0].text,
              "TOLVXcorrProcCreate: Erro na alocacao dos vetores!\n");
    EXPECT_EQ(TOLV_XcorrVectorLength(p), -7);
    float r[1] = {4.0f};
    EXPECT_EQ(TOLV_XcorrProcExecute(p, r, r, r), -7);
    EXPECT_EQ(TOLV_XcorrPhatProcess(p, r, r, r), -7);
    EXPECT_EQ(r[0], 4.0f);
    EXPECT_EQ(TOLV_XcorrProcDestroy(p), 1);
}

// Lengths whose 2 M does not fit in 32 bits: no transform, the same report
// as refused spectra, and nothing read or written by the calls.
TEST_F(XcorrMessages, TransformsTooLongForThirtyTwoBitsAreRefused)
{
    const char *text = "TOLVXcorrProcCreate: Erro na alocacao dos vetores!\n";
    float r[1] = {4.0f};
    for (const auto &lengths : {std::pair<int, int>{0x40000000, 1},
                                std::pair<int, int>{1, INT32_MAX}}) {
        seen.clear();
        _TOLV_XCORRPROC *p =
            TOLV_XcorrProcCreate(lengths.first, lengths.second);
        ASSERT_NE(p, nullptr);
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_EQ(seen[0].text, text);
        EXPECT_EQ(TOLV_XcorrVectorLength(p), -1);
        EXPECT_EQ(TOLV_XcorrProcExecute(p, r, r, r), -1);
        EXPECT_EQ(TOLV_XcorrPhatProcess(p, r, r, r), -1);
        EXPECT_EQ(TOLV_XcorrProcDestroy(p), 1);

        seen.clear();
        int lag = 12345;
        EXPECT_EQ(TOLV_XcorrCoef(r, lengths.first, r, lengths.second, &lag),
                  -1.0);
        EXPECT_EQ(lag, 12345);
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_EQ(seen[0].text, text);
    }
    EXPECT_EQ(r[0], 4.0f);
}

TEST_F(XcorrMessages, EmptyAndNullProcessorsAreInert)
{
    _TOLV_XCORRPROC *p = TOLV_XcorrProcCreate(0, 0);
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(TOLV_XcorrVectorLength(p), -1);
    float r[1] = {4.0f};
    EXPECT_EQ(TOLV_XcorrProcExecute(p, r, r, r), -1);
    EXPECT_EQ(r[0], 4.0f);
    EXPECT_EQ(TOLV_XcorrProcDestroy(p), 1);

    EXPECT_EQ(TOLV_XcorrProcExecute(nullptr, r, r, r), -1);
    EXPECT_EQ(TOLV_XcorrPhatProcess(nullptr, r, r, r), -1);
    EXPECT_EQ(TOLV_XcorrProcDestroy(nullptr), 1);
    EXPECT_EQ(r[0], 4.0f);
}

} // namespace
