#include <math.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "spectral_test_support.h"
#include "tolv.h"

using spectral_test::Bits;
using spectral_test::SameFloat;

namespace {

const float kInf = INFINITY;
const float kNaN = NAN;

std::vector<float> Window(int type, int length)
{
    std::vector<float> w(length + 1, 777.0f);
    EXPECT_EQ(1, TOLV_CreateWindow(type, w.data(), length));
    EXPECT_EQ(777.0f, w[length]) << "wrote past the window";
    w.resize(length);
    return w;
}

/* Short lengths, where the formulas meet 0 / 0, an unused infinite step and
 * the divisor of the triangle. */
struct ShortCase {
    int type;
    std::vector<float> expected;
};

class ShortWindows : public ::testing::TestWithParam<ShortCase> {};

TEST_P(ShortWindows, GiveTheStatedSamples)
{
    const ShortCase &c = GetParam();
    const std::vector<float> w = Window(c.type, (int)c.expected.size());
    for (size_t i = 0; i < w.size(); i++)
        EXPECT_TRUE(SameFloat(c.expected[i], w[i]))
            << TOLV_GetWindowName(c.type) << " N=" << w.size() << " i=" << i
            << ": " << w[i] << " expected " << c.expected[i];
}

INSTANTIATE_TEST_SUITE_P(
    Figures, ShortWindows,
    ::testing::Values(
        ShortCase{3, {0.0f}},                     /* Hanning, N = 1 */
        ShortCase{5, {0.08f}},                    /* Hamming, N = 1 */
        /* Flat-Top at N = 1: the coefficient sum, near 0 but not 0. */
        ShortCase{10, {(float)((((1.0 - 1.93) + 1.29) - 0.388) + 0.028)}},
        /* The two Nuttall rows carry each other's usual coefficients. */
        ShortCase{9, {(float)(((0.3635819 - 0.4891775) + 0.1365995) - 0.0106411)}},
        ShortCase{8, {(float)(((0.355768 - 0.487396) + 0.144232) - 0.012604)}},
        ShortCase{1, {-0.0f}},                    /* 0 / -1, sign kept */
        ShortCase{1, {kNaN, kNaN}},               /* 0 / 0 */
        ShortCase{1, {kNaN, kInf, kNaN}},
        ShortCase{1, {0.0f, 1.0f, 1.0f, 0.0f}},
        ShortCase{1, {0.0f, 1.0f, 2.0f, 1.0f, 0.0f}}, /* overshoot h/(h-1) */
        ShortCase{2, {kNaN}},
        ShortCase{2, {0.0f, 1.0f}},
        ShortCase{2, {0.0f, 0.25f, 0.5f, 0.75f, 1.0f}},
        ShortCase{0, {1.0f, 1.0f, 1.0f}},
        ShortCase{4, {0.0f, 0.5f, 1.0f, 0.5f}},   /* periodic: last != first */
        ShortCase{6, {(float)((0.42 - 0.5) + 0.08), 0.34f, 0.34f,
                      (float)((0.42 - 0.5) + 0.08)}}));

/* Independent reference: each cosine evaluated at i times the step in long
 * double, from the textbook coefficient sets bound to the rows as shipped. */
struct CosineRow {
    int type;
    bool periodicDivisor; /* divides by N instead of N - 1 */
    bool mirrored;
    std::vector<double> a; /* w = a0 - a1 cos x + a2 cos 2x - a3 cos 3x ... */
};

const CosineRow kCosineRows[] = {
    {3, false, true, {0.5, 0.5}},
    {4, true, false, {0.5, 0.5}},
    {5, false, true, {0.54, 0.46}},
    {6, true, true, {0.42, 0.5, 0.08}},
    {7, false, true, {0.35875, 0.48829, 0.14128, 0.01168}},
    {8, false, true, {0.355768, 0.487396, 0.144232, 0.012604}},
    {9, false, true, {0.3635819, 0.4891775, 0.1365995, 0.0106411}},
    {10, false, true, {1.0, 1.93, 1.29, 0.388, 0.028}},
};

long double ReferenceSample(const CosineRow &row, int n, int i)
{
    const int divisor = row.periodicDivisor ? n : n - 1;
    const int k = row.mirrored && i > (n - 1) / 2 ? n - 1 - i : i;
    const long double x = 2.0L * 3.14159265358979323846264338327950288L * k /
                          (long double)divisor;
    long double v = 0.0L;
    for (size_t m = 0; m < row.a.size(); m++)
        v += (m % 2 ? -1.0L : 1.0L) * row.a[m] * cosl((long double)m * x);
    return v;
}

TEST(CosineWindows, FollowTheirFormulasAndAreExactlySymmetric)
{
    for (const CosineRow &row : kCosineRows) {
        for (int n : {2, 3, 4, 5, 7, 8, 16, 31, 64, 100, 257, 1024, 1001}) {
            const std::vector<float> w = Window(row.type, n);
            for (int i = 0; i < n; i++) {
                const long double ref = ReferenceSample(row, n, i);
                /* the running phase sum drifts by a few double ulps only */
                EXPECT_NEAR((double)ref, w[i], 1e-6 + 2e-7 * fabsl(ref))
                    << TOLV_GetWindowName(row.type) << " N=" << n << " i=" << i;
                if (row.mirrored) {
                    ASSERT_EQ(Bits(w[i]), Bits(w[n - 1 - i]))
                        << TOLV_GetWindowName(row.type) << " N=" << n;
                }
            }
        }
    }
}

/* The phase is a running sum of the step, not i times the step: the two
 * differ by a few double ulps, which now and then moves a float rounding. */
TEST(CosineWindows, PhaseIsARunningSum)
{
    const int n = 194917, i = 56579;
    const std::vector<float> w = Window(5, n);
    EXPECT_EQ(0x1.4f7198p-1f, w[i]);         /* i x step gives 0x1.4f719ap-1 */
    EXPECT_EQ(0x1.4f7198p-1f, w[n - 1 - i]);
}

TEST(CosineWindows, ShapesThatAreKeptAsShipped)
{
    /* Blackman divides by N: at even N its top is reached twice, at the two
     * middle samples, and never by a phase of pi. */
    const std::vector<float> b = Window(6, 64);
    const float top = *std::max_element(b.begin(), b.end());
    EXPECT_EQ(top, b[31]);
    EXPECT_EQ(top, b[32]);
    EXPECT_LT(top, 1.0f);

    /* Flat-Top is not normalised: its centre is the coefficient sum. */
    const std::vector<float> f = Window(10, 1001);
    EXPECT_NEAR(4.636, f[500], 1e-6);

    /* Hanning and Hamming reach their peak at the centre of an odd length. */
    EXPECT_EQ(1.0f, Window(3, 101)[50]);
    EXPECT_NEAR(1.0f, Window(5, 101)[50], 1e-7);
    /* The periodic Hanning is not symmetric: it starts at 0 and never ends
     * there. */
    const std::vector<float> p = Window(4, 64);
    EXPECT_EQ(0.0f, p[0]);
    EXPECT_GT(p[63], 0.0f);
    EXPECT_EQ(1.0f, p[32]);
}

TEST(CreateWindow, RefusalsLeaveTheBufferAlone)
{
    std::vector<float> w(8, 5.0f);
    EXPECT_EQ(1, TOLV_CreateWindow(3, w.data(), 0));
    EXPECT_EQ(0, TOLV_CreateWindow(3, nullptr, 8));
    EXPECT_EQ(0, TOLV_CreateWindow(11, w.data(), 8));
    EXPECT_EQ(0, TOLV_CreateWindow(-1, w.data(), 8));
    EXPECT_EQ(0, TOLV_CreateWindow(3, w.data(), -4));
    for (float v : w)
        EXPECT_EQ(5.0f, v);
}

TEST(ApplyWindow, MultipliesInFloatAndIgnoresEmptyLengths)
{
    const float window[3] = {0.5f, 1.0f / 3.0f, 2.0f};
    float frame[3] = {3.0f, 0.1f, -1.5f};
    EXPECT_EQ(1, TOLV_ApplyWindow(window, frame, 3));
    EXPECT_EQ(1.5f, frame[0]);
    EXPECT_EQ(Bits(0.1f * (1.0f / 3.0f)), Bits(frame[1]));
    EXPECT_EQ(-3.0f, frame[2]);
    EXPECT_EQ(1, TOLV_ApplyWindow(window, frame, 0));
    EXPECT_EQ(1, TOLV_ApplyWindow(window, frame, -1));
    EXPECT_EQ(1.5f, frame[0]);
}

const char *const kNames[11] = {
    "Rectangular", "Triangular", "Half-Triangular", "Hanning",
    "Hanning-Periodic", "Hamming", "Blackman", "Blackman-Harris",
    "Blackman-Nuttall", "Nuttal", "Flat-Top"};

TEST(WindowNames, TableRoundTrip)
{
    for (int type = 0; type < 11; type++) {
        ASSERT_NE(nullptr, TOLV_GetWindowName(type));
        EXPECT_STREQ(kNames[type], TOLV_GetWindowName(type));
        EXPECT_EQ(type, TOLV_GetWindowType(kNames[type]));
    }
    EXPECT_EQ(nullptr, TOLV_GetWindowName(11));
    EXPECT_EQ(nullptr, TOLV_GetWindowName(-1));
}

TEST(WindowNames, LookupIsCaseBlindButWhole)
{
    const struct {
        const char *name;
        int type;
    } cases[] = {
        {"hamming", 5},   {"HAMMING", 5},  {"Hamming", 5},
        {"Hamming ", 0},  {"Han", 0},      {"Hanning", 3},
        {"hanning-periodic", 4}, {"Nuttall", 0}, {"nuttal", 9},
        {"FLAT-TOP", 10}, {"", 0},         {"Blackman-Harris-X", 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.type, TOLV_GetWindowType(c.name)) << '"' << c.name << '"';
}

TEST(WindowNames, FromConfigurationText)
{
    const struct {
        const char *config;
        int defaultType;
        int expected;
    } cases[] = {
        {"window=hamming", 3, 5},
        {"size=10, window = 'Flat-Top'", 0, 10},
        {"window=Kaiser", 3, 0}, /* a present but unknown name: Rectangular */
        {"size=10", 7, 7},       /* absent key: the default */
        {"window=Blackman", 99, 6},
        {"size=10", 42, 42}, /* no name for 42: a null default text */
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.expected,
                  TOLV_GetWindowTypeFromStringConfig(c.config, "window",
                                                     c.defaultType))
            << c.config;
}

TEST(NormFactors, MeanAndMeanOfProduct)
{
    const std::vector<float> p = Window(4, 4); /* 0, .5, 1, .5 */
    EXPECT_EQ(0.5, TOLV_GetWindowNormFactor(p.data(), 4));
    EXPECT_EQ(0.375, TOLV_GetTwoWindowNormFactor(p.data(), p.data(), 4));
    EXPECT_EQ(0.0, TOLV_GetWindowNormFactor(nullptr, 4));
    EXPECT_TRUE(isnan(TOLV_GetWindowNormFactor(p.data(), 0)));
    const double negative = TOLV_GetWindowNormFactor(p.data(), -3);
    EXPECT_EQ(0.0, negative);
    EXPECT_TRUE(signbit(negative));
    EXPECT_EQ(0.0, TOLV_GetTwoWindowNormFactor(p.data(), nullptr, 0));
    EXPECT_EQ(0.0, TOLV_GetTwoWindowNormFactor(nullptr, p.data(), 4));

    /* The sum runs in double: float accumulation would lose the small
     * samples against the large one. */
    const float big[2] = {16777216.0f, 1.0f};
    EXPECT_EQ(16777217.0 / 2.0, TOLV_GetWindowNormFactor(big, 2));
    /* Each product is rounded to float before it is widened:
     * (1 + 2^-12)^2 = 1 + 2^-11 + 2^-24 becomes 1 + 2^-11. */
    const float w = 1.0f + ldexpf(1.0f, -12);
    EXPECT_EQ(1.0 + ldexp(1.0, -11), TOLV_GetTwoWindowNormFactor(&w, &w, 1));
}

} // namespace
