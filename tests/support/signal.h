/*
 * Test support for the signal-processing tests: reproducible uniform noise,
 * the L2 norm of a block, and a test environment that keeps any wisdom file
 * out of the developer's data folder when a program is run by hand (ctest
 * already clears KEEL_DATA_PATH).
 */
#ifndef TOLV_TESTS_SUPPORT_SIGNAL_H
#define TOLV_TESTS_SUPPORT_SIGNAL_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

namespace tolv_test {

/* n samples uniform in [-amplitude, amplitude], the same for the same seed. */
inline std::vector<float> UniformNoise(int n, unsigned seed,
                                       float amplitude = 1.0f)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-amplitude, amplitude);
    std::vector<float> v(n);
    for (float &x : v)
        x = dist(rng);
    return v;
}

/* Euclidean norm, summed in double. */
inline double Norm2(const std::vector<float> &x)
{
    double s = 0.0;
    for (float v : x)
        s += static_cast<double>(v) * v;
    return std::sqrt(s);
}

class NoWisdomFolder : public ::testing::Environment {
  public:
    void SetUp() override { unsetenv("KEEL_DATA_PATH"); }
};

inline ::testing::Environment *const kNoWisdomFolder =
    ::testing::AddGlobalTestEnvironment(new NoWisdomFolder);

} // namespace tolv_test

#endif
