/*
 * The machine-neutral helpers of src/lanes.h: truncation to int32 with x86's
 * answer for NaN and out-of-range values on every machine (order estimates
 * and SOLAFS positions depend on it), and the any-lane test of a mask. The
 * kernels built on the lane helpers are held to their exact models in their
 * own tests.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

#include "lanes.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

const double kInf = std::numeric_limits<double>::infinity();
const double kNan = std::numeric_limits<double>::quiet_NaN();

struct TruncRow {
    double in;
    int32_t out;
};

// Toward zero inside (-2^31 - 1, 2^31), INT32_MIN for everything else.
const TruncRow kDoubleRows[] = {
    {0.0, 0},
    {-0.0, 0},
    {0.999, 0},
    {-0.999, 0},
    {1.5, 1},
    {-1.5, -1},
    {2147483647.0, INT32_MAX},
    {2147483647.999, INT32_MAX},
    {2147483648.0, INT32_MIN},
    {4294967296.0, INT32_MIN},
    {-2147483647.999, -2147483647},
    {-2147483648.0, INT32_MIN},
    {-2147483648.999, INT32_MIN},
    {-2147483649.0, INT32_MIN},
    {1e300, INT32_MIN},
    {-1e300, INT32_MIN},
    {kInf, INT32_MIN},
    {-kInf, INT32_MIN},
    {kNan, INT32_MIN},
    {-kNan, INT32_MIN},
};

TEST(TruncToInt32, DoubleEdgesOfTheRange)
{
    for (const TruncRow &row : kDoubleRows)
        EXPECT_EQ(row.out, _TruncToInt32(row.in)) << row.in;
}

// Floats near the ends: 2^31 - 128 is the largest float below 2^31, and
// -2^31 - 256 the next float below -2^31.
TEST(TruncToInt32, FloatEdgesOfTheRange)
{
    const TruncRow rows[] = {
        {2147483520.0, 2147483520},
        {2147483648.0, INT32_MIN},
        {-2147483520.0, -2147483520},
        {-2147483904.0, INT32_MIN},
        {16777217.0, 16777216},
        {-0.75, 0},
        {kInf, INT32_MIN},
        {kNan, INT32_MIN},
    };
    for (const TruncRow &row : rows)
        EXPECT_EQ(row.out, _TruncToInt32(static_cast<float>(row.in))) << row.in;
}

#if defined(__SSE2__)
// Where the instructions exist, the helper agrees with them on random bit
// patterns (every class of value) and on random values around the range.
TEST(TruncToInt32, AgreesWithTheX86Instructions)
{
    std::mt19937_64 rng(20);
    std::uniform_real_distribution<double> near(-3e9, 3e9);
    for (int i = 0; i < 200000; ++i) {
        const uint64_t bits = rng();
        const uint32_t low = static_cast<uint32_t>(bits);
        double d;
        float f;
        memcpy(&d, &bits, sizeof(d));
        memcpy(&f, &low, sizeof(f));
        const double v = near(rng);
        const float vf = static_cast<float>(v);
        ASSERT_EQ(_mm_cvttsd_si32(_mm_set_sd(d)), _TruncToInt32(d)) << d;
        ASSERT_EQ(_mm_cvttss_si32(_mm_set_ss(f)), _TruncToInt32(f)) << f;
        ASSERT_EQ(_mm_cvttsd_si32(_mm_set_sd(v)), _TruncToInt32(v)) << v;
        ASSERT_EQ(_mm_cvttss_si32(_mm_set_ss(vf)), _TruncToInt32(vf)) << vf;
    }
}
#endif

TEST(AnyLane, EachLaneAloneCounts)
{
    EXPECT_FALSE(_AnyLane(_I4{0, 0, 0, 0}));
    for (int lane = 0; lane < 4; ++lane) {
        _I4 mask = {0, 0, 0, 0};
        mask[lane] = -1;
        EXPECT_TRUE(_AnyLane(mask)) << lane;
    }
}

} // namespace
