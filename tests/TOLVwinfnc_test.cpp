#include <gtest/gtest.h>

#include "spectral_test_support.h"
#include "tolv.h"

using spectral_test::Bits;

namespace {

std::vector<float> Window(int type, int length)
{
    std::vector<float> w(length + 1, 777.0f);
    EXPECT_EQ(1, TOLV_CreateWindow(type, w.data(), length));
    EXPECT_EQ(777.0f, w[length]) << "wrote past the window";
    w.resize(length);
    return w;
}

/* Short lengths meet 0 / 0, an unused infinite step and the triangle's
 * divisor h - 1; the Nuttall rows at N = 1 show which coefficient set each
 * carries, Blackman at N = 4 its divisor N. Compared by bits, NaN = NaN. */
TEST(Windows, ShortLengths)
{
    const float inf = INFINITY, nan = NAN, b0 = (float)((0.42 - 0.5) + 0.08);
    const std::pair<int, std::vector<float>> cases[] = {
        {3, {0.0f}},
        {5, {0.08f}},
        {10, {(float)((((1.0 - 1.93) + 1.29) - 0.388) + 0.028)}},
        {9, {(float)(((0.3635819 - 0.4891775) + 0.1365995) - 0.0106411)}},
        {8, {(float)(((0.355768 - 0.487396) + 0.144232) - 0.012604)}},
        {1, {-0.0f}},
        {1, {nan, nan}},
        {1, {nan, inf, nan}},
        {1, {0, 1, 1, 0}},
        {1, {0, 1, 2, 1, 0}},
        {2, {nan}},
        {2, {0, 1}},
        {2, {0, 0.25f, 0.5f, 0.75f, 1}},
        {0, {1, 1, 1}},
        {4, {0, 0.5f, 1, 0.5f}},
        {6, {b0, 0.34f, 0.34f, b0}},
    };
    for (const auto &c : cases) {
        const std::vector<float> w = Window(c.first, (int)c.second.size());
        for (size_t i = 0; i < w.size(); i++)
            EXPECT_TRUE(isnan(w[i]) ? isnan(c.second[i])
                                    : Bits(w[i]) == Bits(c.second[i]))
                << TOLV_GetWindowName(c.first) << " N=" << w.size()
                << " i=" << i << ": " << w[i];
    }
}

/* Against cosines at i times the step in long double; mirrored rows are
 * symmetric to the bit. */
TEST(Windows, CosineSumsFollowTheirFormulas)
{
    const struct {
        int type;
        bool divideByN, mirrored;
        std::vector<double> a; /* a0 - a1 cos x + a2 cos 2x - ... */
    } rows[] = {
        {3, false, true, {0.5, 0.5}},
        {4, true, false, {0.5, 0.5}},
        {5, false, true, {0.54, 0.46}},
        {6, true, true, {0.42, 0.5, 0.08}},
        {7, false, true, {0.35875, 0.48829, 0.14128, 0.01168}},
        {8, false, true, {0.355768, 0.487396, 0.144232, 0.012604}},
        {9, false, true, {0.3635819, 0.4891775, 0.1365995, 0.0106411}},
        {10, false, true, {1.0, 1.93, 1.29, 0.388, 0.028}},
    };
    for (const auto &row : rows)
        for (int n : {2, 3, 4, 5, 16, 31, 100, 1001}) {
            const std::vector<float> w = Window(row.type, n);
            for (int i = 0; i < n; i++) {
                const int k = row.mirrored && i > (n - 1) / 2 ? n - 1 - i : i;
                const long double x =
                    2.0L * M_PIl * k / (row.divideByN ? n : n - 1);
                long double ref = 0.0L;
                for (size_t m = 0; m < row.a.size(); m++)
                    ref += (m % 2 ? -1.0L : 1.0L) * row.a[m] * cosl(m * x);
                ASSERT_NEAR((double)ref, w[i], 1e-6 + 2e-7 * fabsl(ref))
                    << row.type << " " << n;
                ASSERT_TRUE(!row.mirrored || Bits(w[i]) == Bits(w[n - 1 - i]));
            }
        }
    EXPECT_NEAR(4.636, Window(10, 1001)[500],
                1e-6); /* Flat-Top is not normalised */
    /* The phase is a running sum: i times the step would give 0x1.4f719ap-1. */
    EXPECT_EQ(0x1.4f7198p-1f, Window(5, 194917)[56579]);
}

TEST(Windows, RefusalsApplicationAndNormFactors)
{
    std::vector<float> w(8, 5.0f);
    EXPECT_EQ(1, TOLV_CreateWindow(3, w.data(), 0));
    for (const std::pair<int, int> &bad :
         {std::make_pair(11, 8), {-1, 8}, {3, -4}})
        EXPECT_EQ(0, TOLV_CreateWindow(bad.first, w.data(), bad.second));
    EXPECT_EQ(0, TOLV_CreateWindow(3, nullptr, 8));
    EXPECT_EQ(std::vector<float>(8, 5.0f), w);
    const float window[3] = {0.5f, 1.0f / 3.0f, 2.0f};
    float frame[3] = {3.0f, 0.1f, -1.5f};
    EXPECT_EQ(1, TOLV_ApplyWindow(window, frame, 3));
    EXPECT_EQ(1, TOLV_ApplyWindow(window, frame, -1));
    EXPECT_TRUE(frame[0] == 1.5f &&
                Bits(frame[1]) == Bits(0.1f * (1.0f / 3.0f)) && frame[2] == -3);

    const std::vector<float> p = Window(4, 4); /* 0, .5, 1, .5 */
    EXPECT_EQ(0.5, TOLV_GetWindowNormFactor(p.data(), 4));
    EXPECT_EQ(0.375, TOLV_GetTwoWindowNormFactor(p.data(), p.data(), 4));
    EXPECT_TRUE(isnan(TOLV_GetWindowNormFactor(p.data(), 0)));
    EXPECT_TRUE(signbit(TOLV_GetWindowNormFactor(p.data(), -3)));
    EXPECT_EQ(0.0, TOLV_GetWindowNormFactor(nullptr, 4));
    EXPECT_EQ(0.0, TOLV_GetTwoWindowNormFactor(nullptr, p.data(), 4));
    EXPECT_EQ(0.0, TOLV_GetTwoWindowNormFactor(p.data(), nullptr, 0));
    /* The sum runs in double; each product is rounded to float first:
     * (1 + 2^-12)^2 = 1 + 2^-11 + 2^-24 becomes 1 + 2^-11. */
    const float big[2] = {16777216.0f, 1.0f}, one = 1.0f + ldexpf(1.0f, -12);
    EXPECT_EQ(16777217.0 / 2.0, TOLV_GetWindowNormFactor(big, 2));
    EXPECT_EQ(1.0 + ldexp(1.0, -11),
              TOLV_GetTwoWindowNormFactor(&one, &one, 1));
}

/* Names round-trip; lookups are case-blind over the longer length; a
 * configured unknown name gives Rectangular, an absent key the default. */
TEST(Windows, NamesAndConfiguration)
{
    const char *const names[11] = {
        "Rectangular",      "Triangular", "Half-Triangular", "Hanning",
        "Hanning-Periodic", "Hamming",    "Blackman",        "Blackman-Harris",
        "Blackman-Nuttall", "Nuttal",     "Flat-Top"};
    for (int type = 0; type < 11; type++) {
        EXPECT_STREQ(names[type], TOLV_GetWindowName(type));
        EXPECT_EQ(type, TOLV_GetWindowType(names[type]));
    }
    EXPECT_TRUE(TOLV_GetWindowName(11) == nullptr &&
                TOLV_GetWindowName(-1) == nullptr);
    for (const std::pair<const char *, int> &c : {std::make_pair("hamming", 5),
                                                  {"HAMMING", 5},
                                                  {"Hamming ", 0},
                                                  {"Han", 0},
                                                  {"Nuttall", 0}})
        EXPECT_EQ(c.second, TOLV_GetWindowType(c.first))
            << '"' << c.first << '"';
    EXPECT_EQ(10, TOLV_GetWindowTypeFromStringConfig(
                      "size=10, window = 'Flat-Top'", "window", 0));
    EXPECT_EQ(0,
              TOLV_GetWindowTypeFromStringConfig("window=Kaiser", "window", 3));
    EXPECT_EQ(42, TOLV_GetWindowTypeFromStringConfig("size=10", "window",
                                                     42)); /* no name */
}

} // namespace
