// Sample conversion, vector kernels and the recursive block filter.
#include "keel.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

TEST(KeelConvert, RoundsHalfToEvenSaturatesAndRoundTrips)
{
    // clang-format off
    const std::pair<float, int16_t> cases[] = {
        {1.0f, 32767}, {0.5f / 32768, 0}, {1.5f / 32768, 2}, {2.5f / 32768, 2}, {-2.5f / 32768, -2},
        {0.7f / 32768, 1}, {32767.5f / 32768, 32767}, {-32767.5f / 32768, -32768}, {-kInf, -32768}, {kNaN, 0}};
    // clang-format on
    for (const auto &c : cases) {
        int16_t out[2] = {12345, 7}; // the second is outside the count
        KEELUTILS_ConvertIEEEFloatToWord16(&c.first, out, 1);
        EXPECT_TRUE(out[0] == c.second && out[1] == 7) << c.first;
    }
    // Every sixteen-bit value survives a round trip through v / 32768.
    std::vector<int16_t> all(65536), back(65536, 0);
    std::vector<float> floats(65536);
    for (int i = 0; i < 65536; ++i)
        all[i] = static_cast<int16_t>(i - 32768);
    KEELUTILS_ConvertWord16ToIEEEFloat(all.data(), floats.data(), 65536);
    EXPECT_TRUE(floats[0] == -1.0f && floats[65535] == 32767.0f / 32768.0f);
    KEELUTILS_ConvertIEEEFloatToWord16(floats.data(), back.data(), 65536);
    EXPECT_EQ(back, all);
}

TEST(KeelVector, ProductsInFloatSquaresInDoubleSummedInIndexOrder)
{
    std::vector<float> v = {0.1f, 3e38f, 5.0f};
    FVectorMulScalar(v.data(), 2, 3.0f); // the last sample is outside the count
    EXPECT_EQ(v, (std::vector<float>{0.1f * 3.0f, kInf, 5.0f}));
    const float big = 134217728.0f; // 2^27: its square 2^54 has an ulp of 4
    const float leading[] = {big, 1, 1, 1, 1}, trailing[] = {1, 1, 1, 1, big};
    const double twoTo54 = 18014398509481984.0;
    EXPECT_EQ(FVectorSumOfSquares(leading, 5), twoTo54);
    EXPECT_EQ(FVectorSumOfSquares(trailing, 5), twoTo54 + 4);
    const float huge[] = {3e20f, -3e20f}; // squares overflow float, not double
    EXPECT_EQ(FVectorSumOfSquares(huge, 2), 2.0 * double(3e20f) * 3e20f);
    EXPECT_EQ(FVectorSumOfSquares(huge, -1), 0.0);
}

TEST(KeelVector, ArgAbsMaxFindsTheFirstLargestMagnitude)
{
    // NaN is never taken; the count bounds the search.
    // clang-format off
    const struct {
        std::vector<float> v;
        int count, index;
        float peak;
    } cases[] = {
        {{1.0f}, 0, -1, 0.0f}, {{-3.0f, 2.0f, 3.0f}, 3, 0, 3.0f}, {{kNaN, 1.0f, -2.0f, kNaN}, 4, 2, 2.0f},
        {{kNaN, kNaN}, 2, 0, 0.0f}, {{0.5f, -kInf, kInf}, 3, 1, kInf}, {{1.0f, 2.0f, 9.0f}, 2, 1, 2.0f}};
    // clang-format on
    for (const auto &c : cases) {
        float peak = -1.0f;
        EXPECT_EQ(FVectorArgAbsMax(c.v.data(), c.count, &peak), c.index);
        EXPECT_TRUE(peak == c.peak &&
                    FVectorAbsMax(c.v.data(), c.count) == peak)
            << c.count;
    }
}

// The difference equation evaluated over the whole signal with the
// summation order the filter promises: feed-forward terms, then feedback.
std::vector<double> directEvaluation(const std::vector<double> &a,
                                     const std::vector<double> &b,
                                     const std::vector<float> &x)
{
    const size_t c = b.size();
    std::vector<double> y(x.size());
    for (size_t n = 0; n < x.size(); ++n) {
        double acc = b[0] * static_cast<double>(x[n]);
        for (size_t k = 1; k < c; ++k)
            acc += b[k] * (n >= k ? static_cast<double>(x[n - k]) : 0.0);
        for (size_t k = 1; k < c; ++k)
            acc -= a[k] * (n >= k ? y[n - k] : 0.0);
        y[n] = acc;
    }
    return y;
}

TEST(KeelFilterBlock, BitExactAgainstTheDirectEvaluationInAnyBlockSplit)
{
    std::mt19937 rng(20240611);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::vector<float> x(1500);
    for (float &s : x)
        s = static_cast<float>(uniform(rng));
    // Table lengths, one tap, and a filter longer than any on-stack history.
    for (int c : {1, 2, 6, 11, 66}) {
        // Real poles inside |z| < 0.9; a[0] is NaN: it is never read.
        std::vector<double> a(1, 1.0), b(c);
        for (int k = 1; k < c; ++k) {
            const double pole = 0.9 * uniform(rng);
            a.push_back(0.0);
            for (int i = k; i >= 1; --i)
                a[i] -= pole * a[i - 1];
        }
        a[0] = std::numeric_limits<double>::quiet_NaN();
        for (double &value : b)
            value = uniform(rng);
        const std::vector<double> expected = directEvaluation(a, b, x);
        // Whole, then random blocks (every fourth empty), each in an exactly
        // sized buffer so that overruns show under ASan.
        for (bool split : {false, true}) {
            std::vector<double> memA(c + 1, 0.0), memB(c + 1, 0.0), got;
            for (size_t block = 0; got.size() < x.size(); ++block) {
                const size_t n = std::min(!split           ? x.size()
                                          : block % 4 == 3 ? 0
                                                           : rng() % 400,
                                          x.size() - got.size());
                std::vector<float> in(x.begin() + got.size(),
                                      x.begin() + got.size() + n);
                std::vector<double> out(n);
                ASSERT_EQ(FilterBlockFloat(a.data(), b.data(), c, memA.data(),
                                           memB.data(), in.data(), out.data(),
                                           static_cast<int>(n)),
                          1);
                got.insert(got.end(), out.begin(), out.end());
            }
            EXPECT_EQ(std::memcmp(got.data(), expected.data(),
                                  x.size() * sizeof(double)),
                      0)
                << "count " << c << (split ? " in blocks" : " whole");
        }
    }
}

// Refusals and empty blocks leave the state alone; no coefficient, no sum:
// silence out and nothing read (the stored tables give null coefficients for
// a pair they lack).
TEST(KeelFilterBlock, RefusalsEmptyBlocksAndNoCoefficients)
{
    const double a[] = {1.0, -0.5}, b[] = {1.0, 1.0};
    double memA[3] = {0.25, 0.5, 0.75}, memB[3] = {1.25, 1.5, 1.75},
           y[4] = {-9.0, -9.0, -9.0, -9.0};
    const double keptA[3] = {0.25, 0.5, 0.75}, keptB[3] = {1.25, 1.5, 1.75};
    const float x[3] = {1.0f, -0.25f, 0.75f};
    EXPECT_EQ(FilterBlockFloat(a, b, 2, memA, memB, x, y, 0), 1);
    EXPECT_EQ(FilterBlockFloat(a, b, 2, memA, memB, nullptr, nullptr, -5), 1);
    EXPECT_EQ(FilterBlockFloat(nullptr, b, 2, memA, memB, x, y, 1), 0);
    EXPECT_EQ(FilterBlockFloat(a, b, 2, memA, nullptr, x, y, 1), 0);
    EXPECT_EQ(y[0], -9.0);
    EXPECT_EQ(std::memcmp(memA, keptA, sizeof memA), 0);
    EXPECT_EQ(std::memcmp(memB, keptB, sizeof memB), 0);
    EXPECT_EQ(FilterBlockFloat(nullptr, nullptr, 0, nullptr, nullptr, x, y, 3),
              1);
    EXPECT_TRUE(y[0] == 0.0 && y[2] == 0.0 && y[3] == -9.0);
}

} // namespace
