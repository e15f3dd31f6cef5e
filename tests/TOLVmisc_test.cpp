#include <gtest/gtest.h>

#include "spectral_test_support.h"
#include "tolv.h"

namespace {

/* Bark is held flat below 1 Hz; the way back reads the table with the
 * whole Bark number as index and runs the end segments on beyond it. */
TEST(AuditoryScales, MelBarkAndTheBarkTable)
{
    EXPECT_EQ(0.0, TOLVUTIL_Freq2Mels(0.0));
    EXPECT_DOUBLE_EQ(1127.01048 * log(2.0), TOLVUTIL_Freq2Mels(700.0));
    EXPECT_NEAR(440.0, TOLVUTIL_Mels2Freq(TOLVUTIL_Freq2Mels(440.0)), 1e-9);
    for (double hz : {0.0, 0.5, -5.0})
        EXPECT_EQ(0.009880060319993549, TOLVUTIL_Freq2Bark(hz)) << hz;
    EXPECT_DOUBLE_EQ(0.009880060319993549, TOLVUTIL_Freq2Bark(1.0));
    EXPECT_NEAR(8.5105315, TOLVUTIL_Freq2Bark(1000.0), 1e-7);
    const std::pair<double, double> barks[] = {
        {0, 0},      {9, 1000},   {9.5, 1085},  {24, 13500},
        {-0.5, -30}, {25, 16500}, {23.5, 12000}};
    for (const auto &c : barks)
        EXPECT_DOUBLE_EQ(c.second, TOLVUTIL_Bark2Freq(c.first)) << c.first;
}

/* Energy ignores DC and sums in float: around 1000 the squares lose the
 * deviations and read as silence. An exact zero or an underflowing product
 * is no crossing; the rate divides by the count of samples, 0 / 0 for none. */
TEST(FrameMeasures, EnergyAndZeroCrossRate)
{
    const float zeros[4] = {0, 0, 0, 0}, square[4] = {1, -1, 1, -1},
                shifted[4] = {3, 1, 3, 1},
                nearThousand[4] = {1000.25f, 1000.0f, 999.9990234375f, 1000.5f};
    EXPECT_EQ(0.0f, TOLV_CalcEnergy(zeros, 4));
    EXPECT_EQ(0.0f, TOLV_CalcEnergy(zeros, 0));
    const float unitPower = (float)(10.0 * log10(1.0 / 0.32768));
    EXPECT_EQ(unitPower, TOLV_CalcEnergy(square, 4));
    EXPECT_EQ(unitPower, TOLV_CalcEnergy(shifted, 4));
    EXPECT_EQ(0.0f, TOLV_CalcEnergy(nearThousand, 4));
    const std::pair<std::vector<float>, float> crossings[] = {
        {{1, -1, 1, -1}, 0.75f},
        {{1, 0, -1}, 0},
        {{2}, 0},
        {{1e-30f, -1e-30f}, 0}};
    for (const auto &c : crossings)
        EXPECT_EQ(c.second,
                  TOLV_CalcZeroCrossRate(c.first.data(), (int)c.first.size()));
    EXPECT_TRUE(isnan(TOLV_CalcZeroCrossRate(square, 0)));
}

/* Against an extended-precision run of the same section: outputs kept in
 * double and rounded only when stored stay within a float ulp; in place
 * gives the same bits; gains about 0.97 at Nyquist, 0.01 at DC. */
TEST(FrameMeasures, RemoveDC)
{
    const int n = 20000;
    std::vector<float> x(n), y(n), ones(n, 1.0f);
    for (int i = 0; i < n; i++)
        x[i] = i < 300 ? 0.3f + 0.5f * (float)sin(0.37 * i)
                       : (i % 2 ? -1.0f : 1.0f);
    TOLV_RemoveDC(x.data(), y.data(), n);
    long double y1 = 0, y2 = 0, x1 = 0, x2 = 0;
    for (int i = 0; i < 300; i++) {
        const long double v =
            -0.9114024043083191L * y2 + 1.9059464931488037L * y1 +
            0.9272743463516235L * x[i] - 1.8544940948486328L * x1 +
            0.9272743463516235L * x2;
        ASSERT_LE(fabsl(v - y[i]), ldexpf(1.0f, ilogbf((float)v) - 23)) << i;
        x2 = x1, x1 = x[i], y2 = y1, y1 = v;
    }
    EXPECT_NEAR(0.97, fabs(y[n - 1]), 0.005);
    TOLV_RemoveDC(x.data(), x.data(), n);
    EXPECT_EQ(0, memcmp(x.data(), y.data(), 4 * n));
    TOLV_RemoveDC(ones.data(), ones.data(), n);
    EXPECT_NEAR(0.01, ones[n - 1], 0.001);
}

/* Segments by bisection, extrapolated at both ends; at the last point t is
 * 1 and the ordinate is rebuilt ((0.1 - 0.7) + 0.7 is 0x3DCCCCD0), an inner
 * abscissa is the left end of its segment and gives its ordinate as is. */
TEST(FrameMeasures, LinearInterpolation)
{
    const float x[5] = {0, 1, 2, 4, 8}, y[5] = {0.7f, 0.1f, 0, 4, 12};
    const std::pair<float, float> points[] = {
        {3, 2}, {6, 8}, {8, 12}, {-1, 1.3f}, {10, 16}};
    for (const auto &c : points)
        EXPECT_FLOAT_EQ(c.second, TOLVINTERPOLATE_Linear(x, y, 5, c.first))
            << c.first;
    EXPECT_EQ(0.1f, TOLVINTERPOLATE_Linear(x, y, 5, 1.0f));
    EXPECT_EQ(0x3DCCCCD0u,
              spectral_test::Bits(TOLVINTERPOLATE_Linear(x, y, 2, 1.0f)));
    EXPECT_TRUE(isnan(TOLVINTERPOLATE_Linear(x, y, 1, 2.0f)));
}

} // namespace
