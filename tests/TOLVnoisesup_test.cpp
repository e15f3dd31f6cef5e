/*
 * The noise suppressor wrapper: frame sizes, refusals, and the results its
 * call order gives (a delayed copy at 8000 and 16000 Hz, silence at 32000).
 */
#include "TOLVnoisesup/noisesup.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "fresh_process.h"

namespace {

struct Message {
    int level;
    int code;
    std::string text;
};
std::vector<Message> g_messages;
void Capture(int level, int code, const char *text, void *)
{
    g_messages.push_back({level, code, text});
}

class NoiseSup : public ::testing::Test {
  protected:
    void SetUp() override
    {
        g_messages.clear();
        KEELDEBUG_SetMessageHandler(Capture, nullptr);
    }
    void TearDown() override { KEELDEBUG_SetMessageHandler(nullptr, nullptr); }
};

std::vector<int16_t> Noise(size_t n, int amplitude, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_int_distribution<int> d(-amplitude, amplitude);
    std::vector<int16_t> v(n);
    for (auto &x : v)
        x = (int16_t)d(gen);
    return v;
}

/* Runs a whole stream through DoNoiseSup16, frame by frame. */
std::vector<int16_t> Run16(_TOLV_NOISESUP *ns, const std::vector<int16_t> &in)
{
    const int n = TOLV_NoiseSupBufferSize(ns);
    std::vector<int16_t> out(in.size());
    for (size_t f = 0; f + n <= in.size(); f += n)
        EXPECT_EQ(TOLV_DoNoiseSup16(ns, &in[f], &out[f]), 1);
    return out;
}

/* Largest |out[i] - in[i - delay]| over the stream, and whether the first
 * `delay` samples are silent. */
int DelayError(const std::vector<int16_t> &in, const std::vector<int16_t> &out,
               int delay, bool *silentHead)
{
    *silentHead = true;
    for (int i = 0; i < delay; ++i)
        *silentHead = *silentHead && out[i] == 0;
    int worst = 0;
    for (size_t i = delay; i < out.size(); ++i)
        worst = std::max(worst, std::abs(out[i] - in[i - delay]));
    return worst;
}

} // namespace

TEST_F(NoiseSup, FrameLengthFollowsTheRate)
{
    const struct {
        int rate, frame;
    } table[] = {{8000, 80}, {16000, 160}, {32000, 320}};
    for (const auto &row : table) {
        _TOLV_NOISESUP *ns = TOLV_CreateNoiseSupEx(row.rate, 2);
        ASSERT_NE(ns, nullptr) << row.rate;
        EXPECT_EQ(TOLV_NoiseSupBufferSize(ns), row.frame);
        EXPECT_EQ(TOLV_DestroyNoiseSup(ns), 1);
    }
    EXPECT_EQ(TOLV_NoiseSupBufferSize(nullptr), -1);
    EXPECT_EQ(TOLV_DestroyNoiseSup(nullptr), 0);
    EXPECT_TRUE(g_messages.empty());
}

TEST_F(NoiseSup, OtherRatesAreRefusedWithAMessage)
{
    const int live = KEELMEM_LiveDescriptorCount();
    for (int rate : {44100, 48000, 0, -16000, 11025}) {
        g_messages.clear();
        EXPECT_EQ(TOLV_CreateNoiseSupEx(rate, 1), nullptr) << rate;
        ASSERT_EQ(g_messages.size(), 1u);
        EXPECT_EQ(g_messages[0].level, KEEL_LEVEL_ERROR);
        EXPECT_EQ(g_messages[0].code, -1);
        EXPECT_EQ(g_messages[0].text,
                  "TOLV_CreateNoiseSup: Invalid sample rate.");
    }
    EXPECT_EQ(KEELMEM_LiveDescriptorCount(), live);
}

TEST_F(NoiseSup, IntensityOutsideTheEnginesRangeIsRefusedSilently)
{
    const int live = KEELMEM_LiveDescriptorCount();
    for (int intensity : {4, -1, 100}) {
        EXPECT_EQ(TOLV_CreateNoiseSupEx(16000, intensity), nullptr);
    }
    EXPECT_TRUE(g_messages.empty());
    EXPECT_EQ(KEELMEM_LiveDescriptorCount(), live);

    _TOLV_NOISESUP *ns = TOLV_CreateNoiseSupEx(8000, 0);
    ASSERT_NE(ns, nullptr);
    for (int intensity = 0; intensity <= 3; ++intensity)
        EXPECT_EQ(TOLV_SetNoiseSupIntensity(ns, intensity), 1);
    EXPECT_EQ(TOLV_SetNoiseSupIntensity(ns, 4), 0);
    EXPECT_EQ(TOLV_SetNoiseSupIntensity(nullptr, 1), 0);
    TOLV_DestroyNoiseSup(ns);
}

TEST_F(NoiseSup, NullPointersTouchNothing)
{
    _TOLV_NOISESUP *ns = TOLV_CreateNoiseSupEx(16000, 1);
    float f[160] = {0};
    int16_t s[160] = {0};
    for (int which = 0; which < 3; ++which) {
        _TOLV_NOISESUP *o = which == 0 ? nullptr : ns;
        EXPECT_EQ(TOLV_DoNoiseSup(o, which == 1 ? nullptr : f,
                                  which == 2 ? nullptr : f),
                  0);
        EXPECT_EQ(TOLV_DoNoiseSup16(o, which == 1 ? nullptr : s,
                                    which == 2 ? nullptr : s),
                  0);
    }
    TOLV_DestroyNoiseSup(ns);
}

/* The engine is never fed by its analysis call, so it never starts
 * suppressing: over seconds of stationary noise, at every intensity, the
 * output stays the input delayed by the engine's overlap. */
class DelayedCopy : public NoiseSup,
                    public ::testing::WithParamInterface<std::tuple<int, int>> {
};

TEST_P(DelayedCopy, OutputIsTheInputDelayed)
{
    const int rate = std::get<0>(GetParam());
    const int intensity = std::get<1>(GetParam());
    const int delay = rate == 8000 ? 48 : 96;
    _TOLV_NOISESUP *ns = TOLV_CreateNoiseSupEx(rate, intensity);
    ASSERT_NE(ns, nullptr);
    const std::vector<int16_t> in = Noise(rate * 3, 3000, 7 + intensity);
    const std::vector<int16_t> out = Run16(ns, in);
    bool silentHead = false;
    EXPECT_LE(DelayError(in, out, delay, &silentHead), 3);
    EXPECT_TRUE(silentHead);
    TOLV_DestroyNoiseSup(ns);
    /* Silence in, silence out, also after a noisy stream in another object. */
    ns = TOLV_CreateNoiseSupEx(rate, intensity);
    for (int16_t s : Run16(ns, std::vector<int16_t>(rate / 10, 0)))
        ASSERT_EQ(s, 0);
    TOLV_DestroyNoiseSup(ns);
}

INSTANTIATE_TEST_SUITE_P(RatesAndIntensities, DelayedCopy,
                         ::testing::Combine(::testing::Values(8000, 16000),
                                            ::testing::Values(0, 1, 2, 3)));

TEST_F(NoiseSup, At32000TheOutputIsSilence)
{
    _TOLV_NOISESUP *ns = TOLV_CreateNoiseSupEx(32000, 2);
    ASSERT_NE(ns, nullptr);
    const std::vector<int16_t> in = Noise(32000, 30000, 11);
    const std::vector<int16_t> out = Run16(ns, in);
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], 0) << i;
    TOLV_DestroyNoiseSup(ns);
}

TEST_F(NoiseSup, BothFormsWorkInPlace)
{
    _TOLV_NOISESUP *a = TOLV_CreateNoiseSupEx(8000, 1);
    _TOLV_NOISESUP *b = TOLV_CreateNoiseSupEx(8000, 1);
    const std::vector<int16_t> in = Noise(800, 2000, 5);
    const std::vector<int16_t> expected = Run16(a, in);
    std::vector<int16_t> buffer = in;
    for (size_t f = 0; f < buffer.size(); f += 80)
        ASSERT_EQ(TOLV_DoNoiseSup16(b, &buffer[f], &buffer[f]), 1);
    EXPECT_EQ(buffer, expected);

    _TOLV_NOISESUP *c = TOLV_CreateNoiseSupEx(8000, 1);
    std::vector<float> fl(in.size());
    for (size_t i = 0; i < in.size(); ++i)
        fl[i] = in[i] / 32768.0f;
    for (size_t f = 0; f < fl.size(); f += 80)
        ASSERT_EQ(TOLV_DoNoiseSup(c, &fl[f], &fl[f]), 1);
    for (size_t i = 0; i < fl.size(); ++i)
        ASSERT_EQ(fl[i], expected[i] / 32768.0f) << i;
    TOLV_DestroyNoiseSup(a);
    TOLV_DestroyNoiseSup(b);
    TOLV_DestroyNoiseSup(c);
}

TEST(NoiseSupSaturation, ThresholdsAndTruncation)
{
    const struct {
        float x;
        int16_t expected;
    } table[] = {{32767.5f, 32767},
                 {40000.0f, 32767},
                 {32767.0f, 32767},
                 {32766.9f, 32766},
                 {1.9f, 1},
                 {-1.9f, -1},
                 {0.0f, 0},
                 {-32677.9f, -32677},
                 {-32678.0f, -32678},
                 {-32678.5f, -32768},
                 {-32700.0f, -32768},
                 {-1e9f, -32768},
                 {NAN, 0},
                 {INFINITY, 32767},
                 {-INFINITY, -32768}};
    for (const auto &row : table)
        EXPECT_EQ(_NsSaturate(row.x), row.expected) << row.x;
}

TEST(NoiseSupEngine, StartsCleanOnADirtyHeap)
{
    RUN_IN_FRESH_PROCESS({
        /* Leave freed blocks full of NaN bytes where the engine's instance
         * will be allocated. */
        std::vector<void *> blocks;
        for (int i = 0; i < 16; ++i) {
            void *p = malloc(0x6c30);
            memset(p, 0xff, 0x6c30);
            blocks.push_back(p);
        }
        for (void *p : blocks)
            free(p);
        _TOLV_NOISESUP *ns = TOLV_CreateNoiseSupEx(16000, 2);
        FRESH_CHECK(ns != nullptr);
        const std::vector<int16_t> in = Noise(16000, 3000, 9);
        std::vector<int16_t> out(in.size());
        for (size_t f = 0; f < in.size(); f += 160)
            TOLV_DoNoiseSup16(ns, &in[f], &out[f]);
        bool silentHead = false;
        FRESH_CHECK(DelayError(in, out, 96, &silentHead) <= 3);
        FRESH_CHECK(silentHead);
        FRESH_CHECK(TOLV_DestroyNoiseSup(ns) == 1);
    });
}
