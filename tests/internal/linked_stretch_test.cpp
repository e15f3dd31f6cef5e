/*
 * The linked stretcher: with one channel it is the library's object to the
 * bit under any block split and speed changes; with several, every channel
 * takes the same splices, so a level ratio holds exactly and an
 * inter-channel delay holds in every window.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "keel.h"
#include "linked_stretch.h"
#include "support/signal.h"
#include "tolv.h"

namespace {

constexpr int kRate = 16000;

/* A voiced sound: harmonics of a gliding pitch under a syllable-rate
 * envelope, with a little noise, so that the similarity search has real
 * choices to make. */
std::vector<float> Voice(int n)
{
    std::vector<float> noise = tolv_test::UniformNoise(n, 7, 0.02f);
    std::vector<float> x(static_cast<size_t>(n));
    double phase = 0.0;
    for (int i = 0; i < n; i++) {
        const double t = double(i) / kRate;
        phase += 2.0 * M_PI * (120.0 + 40.0 * std::sin(2.0 * M_PI * 0.7 * t)) /
                 kRate;
        double v = 0.0;
        for (int h = 1; h <= 8; h++)
            v += std::sin(h * phase) / h;
        const double envelope = 0.6 + 0.4 * std::sin(2.0 * M_PI * 4.0 * t);
        x[size_t(i)] = float(0.3 * envelope * v) + noise[size_t(i)];
    }
    return x;
}

/* Feeds interleaved frames in random blocks at a speed that changes now
 * and then, through `input`, collecting through `output`; the same seed
 * gives the same calls. */
template <class In, class Out>
std::vector<float> Drive(const std::vector<float> &x, int channels,
                         unsigned seed, In input, Out output)
{
    std::mt19937 rng(seed);
    const float speeds[] = {0.5f, 0.8f, 1.25f, 2.0f};
    std::vector<float> out, block(4096 * size_t(channels));
    const int frames = int(x.size()) / channels;
    float speed = speeds[rng() % 4];
    for (int at = 0; at < frames;) {
        if (rng() % 8 == 0)
            speed = speeds[rng() % 4];
        const int want = std::min<int>(1 + int(rng() % 700), frames - at);
        at += input(&x[size_t(at) * channels], want, speed);
        const int made = output(block.data(), 4096);
        out.insert(out.end(), block.begin(),
                   block.begin() + long(made) * channels);
    }
    return out;
}

TEST(LinkedStretch, OneChannelIsTheLibraryObject)
{
    const std::vector<float> x = Voice(3 * kRate);
    for (unsigned seed = 1; seed <= 4; seed++) {
        _TOLV_SOLAFS *s = TOLV_SolafsCreate(20, kRate, 1);
        _TOLV_LINKED_STRETCH *st = _LinkedStretchCreate(20, kRate, 1);
        ASSERT_NE(st, nullptr);
        std::vector<float> a = Drive(
            x, 1, seed,
            [&](const float *p, int n, float v) {
                return TOLV_SolafsInputData(s, 0, p, n, v);
            },
            [&](float *p, int cap) {
                return TOLV_SolafsOutputData(s, 0, p, cap);
            });
        std::vector<float> b = Drive(
            x, 1, seed,
            [&](const float *p, int n, float v) {
                return _LinkedStretchInput(st, p, n, v);
            },
            [&](float *p, int cap) {
                return _LinkedStretchOutput(st, p, cap);
            });
        ASSERT_EQ(a.size(), b.size());
        EXPECT_EQ(0, memcmp(a.data(), b.data(), a.size() * sizeof(float)));
        for (int64_t pos : {0, 777, 20000, 47000})
            EXPECT_EQ(TOLV_SolafsTranslateCursorPosition(s, pos),
                      _LinkedStretchTranslate(st, pos));
        TOLV_SolafsDestroy(s);
        _LinkedStretchDestroy(st);
    }
}

/* Lag in -20..40 that best aligns b with a over frames [from, from + n). */
int BestLag(const std::vector<float> &y, int channels, int a, int b, int from,
            int n)
{
    int best = 0;
    double top = -1e300;
    for (int lag = -20; lag <= 40; lag++) {
        double dot = 0.0;
        for (int i = from; i < from + n; i++)
            dot += double(y[size_t(i) * channels + a]) *
                   y[size_t(i + lag) * channels + b];
        if (dot > top) {
            top = dot;
            best = lag;
        }
    }
    return best;
}

/* Channel 1 is half of channel 0 and channel 2 is channel 0 ten frames
 * late. Independent searches would splice them apart; linked, the ratio
 * holds to the bit (halving is exact in every step) and the delay holds in
 * every 50 ms window that is not cut by a splice. */
TEST(LinkedStretch, ChannelsKeepTheirImage)
{
    const int n = 4 * kRate, C = 3;
    const std::vector<float> v = Voice(n + 10);
    std::vector<float> x(size_t(n) * C);
    for (int i = 0; i < n; i++) {
        x[size_t(i) * C] = v[size_t(i) + 10];
        x[size_t(i) * C + 1] = 0.5f * v[size_t(i) + 10];
        x[size_t(i) * C + 2] = v[size_t(i)];
    }
    for (float speed : {0.5f, 0.8f, 1.25f, 2.0f}) {
        _TOLV_LINKED_STRETCH *st = _LinkedStretchCreate(20, kRate, C);
        std::vector<float> y(x.size() * 3);
        int made = 0;
        for (int at = 0; at < n;) {
            at += _LinkedStretchInput(st, &x[size_t(at) * C],
                                      std::min(1000, n - at), speed);
            made += _LinkedStretchOutput(st, &y[size_t(made) * C], 4096);
        }
        _LinkedStretchDestroy(st);
        ASSERT_GT(made, n / speed * 0.9) << speed;
        for (int i = 0; i < made; i++)
            ASSERT_EQ(y[size_t(i) * C + 1], 0.5f * y[size_t(i) * C])
                << speed << " frame " << i;
        const int window = kRate / 20;
        int windows = 0, kept = 0;
        for (int from = 40; from + window + 40 < made; from += window) {
            windows++;
            kept += std::abs(BestLag(y, C, 0, 2, from, window) - 10) <= 1;
        }
        EXPECT_GE(kept, windows * 99 / 100) << speed;
    }
}

TEST(LinkedStretch, ReleasesItsMemory)
{
    const int before = KEELMEM_LiveDescriptorCount();
    for (int round = 0; round < 3; round++)
        _LinkedStretchDestroy(_LinkedStretchCreate(20, kRate, 2));
    EXPECT_EQ(before, KEELMEM_LiveDescriptorCount());
}

TEST(LinkedStretch, RefusesWhatTheObjectCannotRun)
{
    EXPECT_EQ(_LinkedStretchCreate(20, kRate, 0), nullptr);
    EXPECT_EQ(_LinkedStretchCreate(1, 1000, 2), nullptr); /* one frame: 1 */
    _LinkedStretchDestroy(nullptr);
}

} // namespace
