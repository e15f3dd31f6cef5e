/*
 * Every lane width of the section cascade gives the plain walk's bits:
 * cascades of many lengths (one vector, several, a partial last one, more
 * than the registers hold), one to five channels, the stream cut into
 * random blocks shorter and longer than the skew, in place and not, and
 * every third block through the strided form.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "TOLVfilter/filter.h"
#include "lanes.h"
#include "support/signal.h"

namespace {

/* Resonant sections with poles inside the circle at radius 0.8-0.99. */
std::vector<double> Records(int sections, std::mt19937 &rng)
{
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<double> q;
    for (int s = 0; s < sections; s++) {
        const double r = 0.8 + 0.19 * u(rng), th = 3.1 * u(rng);
        q.insert(q.end(), {-2 * r * std::cos(th), r * r, u(rng) - 0.5,
                           u(rng) - 0.5, u(rng) - 0.5});
    }
    return q;
}

std::vector<float> Stream(int sections, int channels, unsigned seed)
{
    std::mt19937 rng(seed);
    const std::vector<double> q = Records(sections, rng);
    _TOLV_FILTER *f =
        TOLV_CreateFilterFromBiquads(channels, sections, q.data());
    std::vector<float> y = tolv_test::UniformNoise(5000 * channels, seed);
    for (size_t pos = 0, block = 0; pos < y.size(); block++) {
        const size_t frames = std::min<size_t>(
            1 + rng() % (block % 2 ? 2000 : 40), (y.size() - pos) / channels);
        std::vector<float> in(y.begin() + long(pos),
                              y.begin() + long(pos + frames * channels));
        float *out = y.data() + pos;
        if (block % 3 == 2) { // every other frame of twice as many
            std::vector<float> wide(in.size() * 2, 7.0f), res(wide.size());
            for (size_t k = 0; k < frames; k++)
                std::memcpy(&wide[2 * k * channels], &in[k * channels],
                            sizeof(float) * channels);
            TOLV_FilterEx(f, wide.data(), res.data(), uint32_t(wide.size()), 0,
                          uint32_t(2 * channels));
            for (size_t k = 0; k < frames; k++)
                std::memcpy(out + k * channels, &res[2 * k * channels],
                            sizeof(float) * channels);
        } else {
            TOLV_Filter(f, block % 2 ? in.data() : out, out,
                        uint32_t(in.size()));
        }
        pos += frames * channels;
    }
    TOLV_DestroyFilter(f);
    return y;
}

TEST(FilterLanes, EveryWidthGivesThePlainWalksBits)
{
    for (int sections : {2, 3, 5, 8, 9, 16, 17, 33}) {
        for (int channels : {1, 2, 5}) {
            const unsigned seed = unsigned(100 * sections + channels);
            _DFIISOSSetLanes(1);
            ASSERT_EQ(_DFIISOSLanes(), 1);
            const std::vector<float> plain = Stream(sections, channels, seed);
            for (int lanes = 2; lanes <= 2 << _TOLV_VectorLevel(); lanes *= 2) {
                _DFIISOSSetLanes(lanes);
                ASSERT_EQ(_DFIISOSLanes(), lanes);
                const std::vector<float> y = Stream(sections, channels, seed);
                EXPECT_EQ(std::memcmp(y.data(), plain.data(),
                                      y.size() * sizeof(float)),
                          0)
                    << sections << " sections, " << channels << " channels at "
                    << lanes << " lanes";
            }
            _DFIISOSSetLanes(0);
        }
    }
}

} // namespace
