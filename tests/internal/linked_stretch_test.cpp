// The linked stretcher: channels that carry one signal are each the library's
// one-channel object to the bit, under any block split and speed changes;
// different channels all take the same splices.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "keel.h"
#include "linked_stretch.h"
#include "support/signal.h"
#include "tolv.h"

namespace {

constexpr int kRate = 16000, kFrames = 3 * kRate;

// Random blocks (of 1 to 3 frames now and then) at a speed that changes now
// and then; with two channels the search's mean is the signal itself, exactly.
TEST(LinkedStretch, ChannelsOfOneSignalAreTheLibraryObject)
{
    const std::vector<float> v = tolv_test::UniformNoise(kFrames, 7);
    const float speeds[] = {0.5f, 0.8f, 1.25f, 2.0f};
    for (int C : {1, 2}) {
        std::vector<float> x, a(4096), b(4096 * C);
        for (float s : v)
            x.insert(x.end(), size_t(C), s);
        _TOLV_SOLAFS *s = TOLV_SolafsCreate(20, kRate, 1);
        _TOLV_LINKED_STRETCH *st = _LinkedStretchCreate(20, kRate, C);
        ASSERT_NE(st, nullptr);
        std::mt19937 rng{unsigned(C)};
        float speed = 1.0f;
        for (int at = 0; at < kFrames;) {
            speed = rng() % 8 ? speed : speeds[rng() % 4];
            const int want = std::min<int>(
                rng() % 4 ? 1 + rng() % 700 : 1 + rng() % 3, kFrames - at);
            const int n = TOLV_SolafsInputData(s, 0, &v[at], want, speed);
            ASSERT_EQ(_LinkedStretchInput(st, &x[at * C], want, speed), n);
            at += n;
            const int made = TOLV_SolafsOutputData(s, 0, a.data(), 4096);
            ASSERT_EQ(_LinkedStretchOutput(st, b.data(), 4096), made);
            for (int f = 0; f < made * C; f++)
                ASSERT_EQ(b[f], a[f / C]) << C << " channels, frame " << f / C;
            const int64_t pos = rng() % 50000;
            ASSERT_EQ(_LinkedStretchTranslate(st, pos),
                      TOLV_SolafsTranslateCursorPosition(s, pos));
        }
        TOLV_SolafsDestroy(s);
        _LinkedStretchDestroy(st);
    }
}

// Channel 1 is half of channel 0 and channel 2 its negation: linked, all take
// the same splices, so both hold to the bit (halving and negation are exact).
TEST(LinkedStretch, ChannelsKeepTheirImage)
{
    const std::vector<float> v = tolv_test::UniformNoise(kFrames, 8);
    std::vector<float> x, y(9 * kFrames);
    for (float s : v)
        x.insert(x.end(), {s, 0.5f * s, -s});
    for (float speed : {0.5f, 0.8f, 1.25f, 2.0f}) {
        _TOLV_LINKED_STRETCH *st = _LinkedStretchCreate(20, kRate, 3);
        int made = 0;
        for (int at = 0; at < kFrames;) {
            at += _LinkedStretchInput(st, &x[at * 3],
                                      std::min(1000, kFrames - at), speed);
            made += _LinkedStretchOutput(st, &y[made * 3], 4096);
        }
        _LinkedStretchDestroy(st);
        ASSERT_GT(made, kFrames / speed * 0.9) << speed;
        for (int i = 0; i < made; i++)
            ASSERT_TRUE(y[i * 3 + 1] == 0.5f * y[i * 3] &&
                        y[i * 3 + 2] == -y[i * 3])
                << speed << ", frame " << i;
    }
}

// Every channel object and the searching one are released whole; a frame
// length below 8 (1 ms at 7999 Hz) or no channel is refused, 8 is not.
TEST(LinkedStretch, ReleasesItsMemoryAndRefusesWhatItCannotRun)
{
    const int before = KEELMEM_LiveDescriptorCount();
    for (int channels : {1, 2, 3})
        _LinkedStretchDestroy(_LinkedStretchCreate(20, kRate, channels));
    _TOLV_LINKED_STRETCH *eight = _LinkedStretchCreate(1, 8000, 1);
    EXPECT_TRUE(eight && !_LinkedStretchCreate(20, kRate, 0) &&
                !_LinkedStretchCreate(1, 7999, 2));
    _LinkedStretchDestroy(eight);
    _LinkedStretchDestroy(nullptr);
    EXPECT_EQ(before, KEELMEM_LiveDescriptorCount());
}

} // namespace
