/* The machine-neutral helpers of lanes.h: truncation to int32 with x86's
 * answer (INT32_MIN) for NaN and out-of-range values on every machine, and
 * the any-lane test of a mask. */
#include <gtest/gtest.h>

#include <cmath>

#include "lanes.h"

namespace {

/* Toward zero inside (-2^31 - 1, 2^31); as floats, 2^31 - 128 is the
 * largest below 2^31 and -2^31 - 256 the next below -2^31. */
TEST(Lanes, TruncationAtTheEdgesOfTheRange)
{
    // clang-format off
    const double pairs[] = {0.0, 0, -0.0, 0, 0.999, 0, -0.999, 0, 1.5, 1, -1.5, -1, 2147483647.0, INT32_MAX,
                            2147483647.999, INT32_MAX, -2147483647.999, -2147483647};
    // clang-format on
    for (int i = 0; i < 18; i += 2)
        EXPECT_EQ((int32_t)pairs[i + 1], _TruncToInt32(pairs[i])) << pairs[i];
    const double outside[] = {
        2147483648.0,  4294967296.0, -2147483648.0, -2147483648.999,
        -2147483649.0, 1e300,        -1e300,        INFINITY,
        -INFINITY,     NAN,          -NAN};
    for (double v : outside)
        EXPECT_EQ(INT32_MIN, _TruncToInt32(v)) << v;
    // clang-format off
    const float floats[] = {2147483520.0f, 2147483520, -2147483520.0f, -2147483520, 16777217.0f, 16777216, -0.75f, 0,
                            2147483648.0f, INT32_MIN, -2147483904.0f, INT32_MIN, NAN, INT32_MIN};
    // clang-format on
    for (int i = 0; i < 14; i += 2)
        EXPECT_EQ((int32_t)floats[i + 1], _TruncToInt32(floats[i]))
            << floats[i];
}

TEST(Lanes, AnyLaneSeesEachLaneAlone)
{
    EXPECT_FALSE(_AnyLane(_I4{0, 0, 0, 0}));
    for (int lane = 0; lane < 4; ++lane)
        EXPECT_TRUE(
            _AnyLane(_I4{lane == 0, lane == 1, lane == 2, lane == 3} * -1))
            << lane;
}

} // namespace
