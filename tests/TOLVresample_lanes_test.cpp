/*
 * Every lane width of the polyphase ticks gives the plain loop's bits: the
 * same stream, cut into the same random blocks (short ones inside the
 * filter's reach, long ones over several segments), run once per width the
 * processor has, with and without delay compensation, flush included.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "TOLVresample/resample.h"
#include "lanes.h"
#include "support/signal.h"

namespace {

struct Pair {
    int in, out;
};

std::vector<float> Stream(Pair p, const char *config, unsigned seed)
{
    const std::vector<float> x = tolv_test::UniformNoise(3 * 9000 + 17, seed);
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(p.in, p.out, config);
    std::vector<float> y;
    std::mt19937 rng(seed);
    const int sizes[] = {1, 7, 60, 61, 200, 1000, 4095, 9000};
    for (size_t pos = 0; pos < x.size();) {
        int n = std::min<int>(sizes[rng() % 8] + int(rng() % 3),
                              int(x.size() - pos));
        std::vector<float> out(size_t(n) * (p.out / p.in + 1) + 1);
        out.resize(size_t(TOLV_Resample(r, x.data() + pos, out.data(), n)));
        y.insert(y.end(), out.begin(), out.end());
        pos += size_t(n);
    }
    std::vector<float> tail(size_t(TOLV_ResampleFlushBufferSize(r)) + 1);
    tail.resize(size_t(TOLV_ResampleFlushBuffersEx(r, tail.data(), 0)));
    y.insert(y.end(), tail.begin(), tail.end());
    TOLV_ResampleDestroy(r);
    return y;
}

bool SameBits(const std::vector<float> &a, const std::vector<float> &b)
{
    return a.size() == b.size() &&
           std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

TEST(ResampleLanes, EveryWidthGivesThePlainLoopsBits)
{
    const Pair pairs[] = {{44100, 48000}, {48000, 44100}, {8000, 16000},
                          {48000, 8000},  {11025, 48000}, {3, 2}};
    for (const char *config : {"", "delaycompensation=false", "order=3"}) {
        for (Pair p : pairs) {
            const unsigned seed = unsigned(p.in + p.out);
            _PolyphaseSetLanes(1);
            ASSERT_EQ(_PolyphaseLanes(), 1);
            const std::vector<float> plain = Stream(p, config, seed);
            for (int lanes = 2; lanes <= 2 << _TOLV_VectorLevel(); lanes *= 2) {
                _PolyphaseSetLanes(lanes);
                ASSERT_EQ(_PolyphaseLanes(), lanes);
                EXPECT_TRUE(SameBits(Stream(p, config, seed), plain))
                    << p.in << " -> " << p.out << " '" << config << "' at "
                    << lanes << " lanes";
            }
            _PolyphaseSetLanes(0);
        }
    }
}

} // namespace
