#include <math.h>

#include <vector>

#include <gtest/gtest.h>

#include "spectral_test_support.h"
#include "tolv.h"

using spectral_test::Bits;
using spectral_test::UlpDistance;

namespace {

TEST(MelScale, FiguresAndRoundTrip)
{
    EXPECT_EQ(0.0, TOLVUTIL_Freq2Mels(0.0));
    EXPECT_DOUBLE_EQ(1127.01048 * log(2.0), TOLVUTIL_Freq2Mels(700.0));
    EXPECT_NEAR(1000.0, TOLVUTIL_Freq2Mels(1000.0), 0.01);
    EXPECT_EQ(0.0, TOLVUTIL_Mels2Freq(0.0));
    for (double hz : {1.0, 60.0, 440.0, 1000.0, 8000.0, 22050.0})
        EXPECT_NEAR(hz, TOLVUTIL_Mels2Freq(TOLVUTIL_Freq2Mels(hz)), 1e-9 * hz);
}

TEST(BarkScale, FormulaHeldFlatBelowOneHertz)
{
    const double atOne = 0.009880060319993549;
    for (double hz : {0.0, 0.5, -5.0, 0.999999})
        EXPECT_EQ(atOne, TOLVUTIL_Freq2Bark(hz)) << hz;
    EXPECT_DOUBLE_EQ(atOne, TOLVUTIL_Freq2Bark(1.0));
    /* 13 atan(0.76) + 3.5 atan((1000/7500)^2) */
    EXPECT_NEAR(8.5105315, TOLVUTIL_Freq2Bark(1000.0), 1e-7);
    EXPECT_GT(TOLVUTIL_Freq2Bark(1.001), atOne);
}

TEST(BarkScale, TableInterpolationTheOtherWay)
{
    const struct {
        double bark, hz;
    } cases[] = {
        {0.0, 0.0},      {9.0, 1000.0},    {9.5, 1085.0},  {24.0, 13500.0},
        {-0.5, -30.0},   {25.0, 16500.0},  {24.5, 15000.0},  {23.5, 12000.0}, {1.25, 82.5},
        {-3.0, -180.0},  {30.0, 31500.0},
    };
    for (const auto &c : cases)
        EXPECT_DOUBLE_EQ(c.hz, TOLVUTIL_Bark2Freq(c.bark)) << c.bark;
    /* Not the inverse of the formula. */
    EXPECT_GT(fabs(TOLVUTIL_Bark2Freq(TOLVUTIL_Freq2Bark(1000.0)) - 1000.0), 1.0);
    /* Far outside, the segments are extended without overflow. */
    EXPECT_DOUBLE_EQ((1e12 - 23.0) * 3000.0 + 10500.0, TOLVUTIL_Bark2Freq(1e12));
    EXPECT_DOUBLE_EQ(-1e12 * 60.0, TOLVUTIL_Bark2Freq(-1e12));
    EXPECT_TRUE(isnan(TOLVUTIL_Bark2Freq(NAN)));
}

TEST(Energy, VarianceInDecibels)
{
    const float zeros[4] = {0, 0, 0, 0};
    EXPECT_EQ(0.0f, TOLV_CalcEnergy(zeros, 4));
    EXPECT_EQ(0.0f, TOLV_CalcEnergy(zeros, 0)); /* 0 / 0 is not above 0 */
    const float dc[3] = {0.5f, 0.5f, 0.5f};
    EXPECT_EQ(0.0f, TOLV_CalcEnergy(dc, 3));

    /* +-1 has variance 1: 10 log10(1 / 0.32768). DC does not count. */
    const float square[4] = {1, -1, 1, -1};
    const float shifted[4] = {3, 1, 3, 1};
    EXPECT_EQ((float)(10.0 * log10(1.0 / 0.32768)), TOLV_CalcEnergy(square, 4));
    EXPECT_EQ((float)(10.0 * log10(1.0 / 0.32768)), TOLV_CalcEnergy(shifted, 4));
    /* Below the reference the level is negative. */
    const float quiet[2] = {0.01f, -0.01f};
    EXPECT_NEAR(10.0 * log10(1e-4 / 0.32768), TOLV_CalcEnergy(quiet, 2), 1e-5);

    /* The sums run in float: around 1000 the squares lose the deviations,
     * the variance rounds to 0 and the frame reads as silence (with double
     * sums it would read about -7.2 dB). */
    const float nearThousand[4] = {1000.25f, 1000.0f, 999.9990234375f, 1000.5f};
    EXPECT_EQ(0.0f, TOLV_CalcEnergy(nearThousand, 4));
    /* Likewise for the plain sum (a double one would give 4.85 dB here). */
    const float nearFourK[6] = {4096.0f, 4096.0f, 4096.0f, 4095.9990234375f,
                                4096.0f, 4096.0f};
    EXPECT_EQ(0.0f, TOLV_CalcEnergy(nearFourK, 6));
}

TEST(ZeroCrossRate, CountsSignChangesPerSample)
{
    const struct {
        std::vector<float> samples;
        float rate;
    } cases[] = {
        {{1, -1, 1, -1}, 0.75f},
        {{1, 0, -1}, 0.0f},       /* an exact zero is no crossing */
        {{2}, 0.0f},
        {{1, 1, -1, -1, 1}, 0.4f},
        {{1e-30f, -1e-30f, 1e-30f}, 0.0f}, /* products underflow to -0 */
        {{-0.5f, 0.25f, 3.0f, -2.0f}, 0.5f},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.rate, TOLV_CalcZeroCrossRate(c.samples.data(),
                                                 (int)c.samples.size()));
    const float one = 1.0f;
    EXPECT_TRUE(isnan(TOLV_CalcZeroCrossRate(&one, 0)));
}

/* Impulse response of the DC blocker: b0, then a1 b0 + b1. */
TEST(RemoveDC, ImpulseStepAndNyquist)
{
    std::vector<float> impulse(3, 0.0f), out(3);
    impulse[0] = 1.0f;
    TOLV_RemoveDC(impulse.data(), out.data(), 3);
    EXPECT_EQ((float)0.9272743463516235, out[0]);
    EXPECT_EQ((float)(1.9059464931488037 * 0.9272743463516235 - 1.8544940948486328),
              out[1]);

    const int n = 40000;
    std::vector<float> ones(n, 1.0f), alternating(n), y(n);
    for (int i = 0; i < n; i++)
        alternating[i] = i % 2 ? -1.0f : 1.0f;
    TOLV_RemoveDC(ones.data(), y.data(), n);
    const double dcGain = (0.9272743463516235 * 2 - 1.8544940948486328) /
                          (1 - 1.9059464931488037 + 0.9114024043083191);
    EXPECT_NEAR(0.01, dcGain, 0.001);
    EXPECT_NEAR(dcGain, y[n - 1], 1e-6);
    TOLV_RemoveDC(alternating.data(), y.data(), n);
    EXPECT_NEAR(0.97, fabs(y[n - 1]), 0.005);
}

TEST(RemoveDC, StatelessAndInPlace)
{
    std::vector<float> x(300);
    for (int i = 0; i < 300; i++)
        x[i] = 0.3f + 0.5f * (float)sin(0.37 * i);
    std::vector<float> first(300), second(300), inPlace = x;
    TOLV_RemoveDC(x.data(), first.data(), 300);
    TOLV_RemoveDC(x.data(), second.data(), 300);
    TOLV_RemoveDC(inPlace.data(), inPlace.data(), 300);
    for (int i = 0; i < 300; i++) {
        ASSERT_EQ(Bits(first[i]), Bits(second[i])) << i;
        ASSERT_EQ(Bits(first[i]), Bits(inPlace[i])) << i;
    }
    /* The recursion keeps its outputs in double and rounds only what it
     * stores: within one float ulp of an extended-precision run of the same
     * section everywhere, where float state would drift much further. */
    long double y1 = 0, y2 = 0, x1 = 0, x2 = 0;
    for (int i = 0; i < 300; i++) {
        const long double y = -0.9114024043083191L * y2 + 1.9059464931488037L * y1 +
                              0.9272743463516235L * x[i] -
                              1.8544940948486328L * x1 + 0.9272743463516235L * x2;
        ASSERT_LE(UlpDistance((float)y, first[i]), 1) << i;
        x2 = x1, x1 = x[i], y2 = y1, y1 = y;
    }
    TOLV_RemoveDC(x.data(), first.data(), 0);
    TOLV_RemoveDC(x.data(), first.data(), -5);
}

TEST(LinearInterpolation, SegmentsAndEnds)
{
    const float x[5] = {0.0f, 1.0f, 2.0f, 4.0f, 8.0f};
    const float y[5] = {0.0f, 10.0f, 0.0f, 4.0f, 12.0f};
    const struct {
        float at, expected;
    } cases[] = {
        {0.5f, 5.0f},  {1.0f, 10.0f}, {1.5f, 5.0f},  {3.0f, 2.0f},
        {6.0f, 8.0f},  {8.0f, 12.0f}, {-1.0f, -10.0f}, /* first segment */
        {10.0f, 16.0f},                                /* last segment */
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.expected, TOLVINTERPOLATE_Linear(x, y, 5, c.at)) << c.at;

    const float x2[2] = {1.0f, 3.0f}, y2[2] = {2.0f, 6.0f};
    EXPECT_EQ(4.0f, TOLVINTERPOLATE_Linear(x2, y2, 2, 2.0f));
    EXPECT_TRUE(isnan(TOLVINTERPOLATE_Linear(x2, y2, 1, 2.0f)));
    EXPECT_TRUE(isnan(TOLVINTERPOLATE_Linear(x2, y2, 0, 2.0f)));

    /* At the last table point t is 1 and the ordinate is rebuilt, not
     * copied: (0.1 - 0.7) + 0.7 rounds to 0x3DCCCCD0, not 0.1f. */
    const float xs[2] = {0.0f, 1.0f}, ys[2] = {0.7f, 0.1f};
    EXPECT_EQ(0x3DCCCCD0u, Bits(TOLVINTERPOLATE_Linear(xs, ys, 2, 1.0f)));
    /* An x equal to an inner abscissa is the left end of its segment. */
    /* (the segment to its left would rebuild 0.1 as 0x3DCCCCD0) */
    const float xm[3] = {0.0f, 1.0f, 2.0f}, ym[3] = {0.9f, 0.1f, 0.5f};
    EXPECT_EQ(0.1f, TOLVINTERPOLATE_Linear(xm, ym, 3, 1.0f));
}

} // namespace
