#include <gtest/gtest.h>

#include <complex>

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
    // clang-format off
    const std::pair<int, std::vector<float>> cases[] = {
        {3, {0.0f}}, {5, {0.08f}}, {10, {(float)((((1.0 - 1.93) + 1.29) - 0.388) + 0.028)}},
        {9, {(float)(((0.3635819 - 0.4891775) + 0.1365995) - 0.0106411)}},
        {8, {(float)(((0.355768 - 0.487396) + 0.144232) - 0.012604)}},
        {1, {-0.0f}}, {1, {nan, nan}}, {1, {nan, inf, nan}}, {1, {0, 1, 1, 0}}, {1, {0, 1, 2, 1, 0}},
        {2, {nan}}, {2, {0, 1}}, {2, {0, 0.25f, 0.5f, 0.75f, 1}}, {0, {1, 1, 1}}, {4, {0, 0.5f, 1, 0.5f}},
        {6, {b0, 0.34f, 0.34f, b0}}};
    // clang-format on
    for (const auto &c : cases) {
        const std::vector<float> w = Window(c.first, (int)c.second.size());
        for (size_t i = 0; i < w.size(); i++)
            EXPECT_TRUE(isnan(w[i]) ? isnan(c.second[i])
                                    : Bits(w[i]) == Bits(c.second[i]))
                << TOLV_GetWindowName(c.first) << " N=" << w.size()
                << " i=" << i << ": " << w[i];
    }
}

/* What each window is chosen for, measured on its spectrum: the highest
 * sidelobe below the main lobe, or the flat top's scalloping loss near zero.
 * Symmetric windows mirror to the bit. */
double SpectrumDb(const std::vector<float> &w, double bins)
{
    std::complex<double> s = 0.0;
    for (size_t i = 0; i < w.size(); i++)
        s += (double)w[i] * std::polar(1.0, -2.0 * M_PI * bins * i / w.size());
    return 20.0 * log10(std::abs(s) + 1e-300);
}

TEST(Windows, SidelobesAndFlatnessOfEachShape)
{
    /* Blackman's phase step divides by N, not N - 1: its end samples are not
     * zero and the sidelobes rise from -58.1 to about -54 dB. */
    // clang-format off
    const std::pair<int, double> sidelobes[] = {
        {0, -13.26}, {1, -26.52}, {3, -31.47}, {4, -31.47}, {5, -42.68}, {6, -53.90}, {7, -92.01}, {8, -93.32},
        {9, -98.17}};
    // clang-format on
    const int n = 257;
    for (const auto &c : sidelobes) {
        const std::vector<float> w = Window(c.first, n);
        const double peak = SpectrumDb(w, 0.0);
        double f = 0.0, level = peak, highest = -400.0;
        while (SpectrumDb(w, f + 0.02) < level) /* down the main lobe */
            level = SpectrumDb(w, f += 0.02);
        for (; f < n / 2; f += 0.02)
            highest = std::max(highest, SpectrumDb(w, f));
        EXPECT_NEAR(highest - peak, c.second, 0.35)
            << TOLV_GetWindowName(c.first);
        for (int i = 0; c.first != 4 && i < n; i++)
            ASSERT_EQ(Bits(w[i]), Bits(w[n - 1 - i])) << c.first << " " << i;
    }
    const std::vector<float> flat = Window(10, 1001);
    EXPECT_NEAR(SpectrumDb(flat, 0.5) - SpectrumDb(flat, 0.0), 0.0, 0.02);
    EXPECT_NEAR(4.636, flat[500], 1e-6); /* Flat-Top is not normalised */
    /* The phase is a running sum: i times the step would give 0x1.4f719ap-1. */
    EXPECT_EQ(0x1.4f7198p-1f, Window(5, 194917)[56579]);
}

TEST(Windows, RefusalsApplicationAndNormFactors)
{
    std::vector<float> w(8, 5.0f);
    EXPECT_EQ(1, TOLV_CreateWindow(3, w.data(), 0));
    EXPECT_EQ(0, TOLV_CreateWindow(11, w.data(), 8) +
                     TOLV_CreateWindow(-1, w.data(), 8) +
                     TOLV_CreateWindow(3, w.data(), -4) +
                     TOLV_CreateWindow(3, nullptr, 8));
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
    for (double refused : {TOLV_GetWindowNormFactor(nullptr, 4),
                           TOLV_GetTwoWindowNormFactor(nullptr, p.data(), 4),
                           TOLV_GetTwoWindowNormFactor(p.data(), nullptr, 0)})
        EXPECT_EQ(0.0, refused);
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
    for (int type = 0; type < 11; type++)
        EXPECT_EQ(type, TOLV_GetWindowType(TOLV_GetWindowName(type)));
    EXPECT_STREQ("Flat-Top", TOLV_GetWindowName(10));
    EXPECT_TRUE(TOLV_GetWindowName(11) == nullptr &&
                TOLV_GetWindowName(-1) == nullptr);
    for (const std::pair<const char *, int> &c : {std::make_pair("hamming", 5),
                                                  {"HAMMING", 5},
                                                  {"Nuttal", 9},
                                                  {"Hamming ", 0},
                                                  {"Han", 0},
                                                  {"Nuttall", 0}})
        EXPECT_EQ(c.second, TOLV_GetWindowType(c.first)) << c.first;
    EXPECT_EQ(10, TOLV_GetWindowTypeFromStringConfig(
                      "size=10, window = 'Flat-Top'", "window", 0));
    EXPECT_EQ(0,
              TOLV_GetWindowTypeFromStringConfig("window=Kaiser", "window", 3));
    EXPECT_EQ(42, TOLV_GetWindowTypeFromStringConfig("size=10", "window", 42));
}

} // namespace
