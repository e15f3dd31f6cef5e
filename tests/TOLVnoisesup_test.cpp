// The noise suppressor wrapper: frame sizes, refusals, and the results its
// call order gives (a delayed copy at 8000 and 16000 Hz, silence at 32000).
#include "TOLVnoisesup/noisesup.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fresh_process.h"
#include "support/messages.h"
#include "support/signal.h"

namespace {

/* Largest distance of out from in delayed by `delay`, where the first `delay`
 * samples (and at 32000 Hz all of them) must be exactly 0. */
int DelayError(const std::vector<int16_t> &in, const std::vector<int16_t> &out,
               int delay)
{
    int worst = 0;
    for (int i = 0; i < int(out.size()); i++)
        worst = std::max(worst, delay < 0 || i < delay
                                    ? int(out[i] != 0) << 16
                                    : std::abs(out[i] - in[i - delay]));
    return worst;
}

/* 80, 160 and 320 samples a frame; other rates are refused with a message,
 * intensities outside 0 .. 3 silently, null objects and pointers do nothing. */
TEST(NoiseSup, FramesAndRefusals)
{
    tolv_test::Messages messages;
    const int live = KEELMEM_LiveDescriptorCount();
    float f[160] = {};
    int16_t s[160] = {};
    for (auto [rate, frame] :
         {std::pair{8000, 80}, {16000, 160}, {32000, 320}}) {
        _TOLV_NOISESUP *ns = TOLV_CreateNoiseSupEx(rate, 2);
        ASSERT_NE(ns, nullptr) << rate;
        EXPECT_EQ(TOLV_NoiseSupBufferSize(ns), frame);
        for (int intensity : {0, 1, 2, 3, 4, -1})
            EXPECT_EQ(TOLV_SetNoiseSupIntensity(ns, intensity),
                      intensity >= 0 && intensity <= 3);
        for (_TOLV_NOISESUP *o : {ns, static_cast<_TOLV_NOISESUP *>(nullptr)})
            EXPECT_TRUE(TOLV_DoNoiseSup(o, o ? nullptr : f, f) == 0 &&
                        TOLV_DoNoiseSup(o, f, o ? nullptr : f) == 0 &&
                        TOLV_DoNoiseSup16(o, o ? nullptr : s, s) == 0 &&
                        TOLV_DoNoiseSup16(o, s, o ? nullptr : s) == 0);
        EXPECT_EQ(TOLV_DestroyNoiseSup(ns), 1);
    }
    EXPECT_TRUE(TOLV_NoiseSupBufferSize(nullptr) == -1 &&
                TOLV_SetNoiseSupIntensity(nullptr, 1) == 0 &&
                TOLV_DestroyNoiseSup(nullptr) == 0);
    for (int intensity : {4, -1, 100})
        EXPECT_EQ(TOLV_CreateNoiseSupEx(16000, intensity), nullptr);
    EXPECT_TRUE(messages.lines.empty()) << messages.All();
    const std::string said = std::to_string(KEEL_LEVEL_ERROR) +
                             " -1 TOLV_CreateNoiseSup: Invalid sample rate.\n";
    for (int rate : {44100, 48000, 0, -16000, 11025}) {
        messages.Clear();
        EXPECT_EQ(TOLV_CreateNoiseSupEx(rate, 1), nullptr) << rate;
        EXPECT_EQ(messages.All(), said);
    }
    EXPECT_EQ(KEELMEM_LiveDescriptorCount(), live);
}

/* The engine is never fed by its analysis call, so it never starts
 * suppressing: at every intensity, also changed between frames, the output
 * is the input delayed by the engine's overlap, 48 samples at 8000 Hz and 96
 * at 16000 Hz, and at 32000 Hz it is silence. Both forms work in place and
 * agree; silence gives silence. The engine's instances are cleared whatever
 * the heap held: this runs in a fresh process whose freed blocks are full of
 * NaN bytes. */
TEST(NoiseSup, DelayedCopyOrSilence)
{
    RUN_IN_FRESH_PROCESS({
        std::vector<void *> blocks;
        for (int i = 0; i < 16; ++i)
            blocks.push_back(memset(malloc(0x6c30), 0xff, 0x6c30));
        for (void *p : blocks)
            free(p);
        for (auto [rate, delay] :
             {std::pair{8000, 48}, {16000, 96}, {32000, -1}})
            for (int intensity = 0; intensity <= 3; intensity++) {
                _TOLV_NOISESUP *a = TOLV_CreateNoiseSupEx(rate, intensity),
                               *b = TOLV_CreateNoiseSupEx(rate, intensity),
                               *quiet = TOLV_CreateNoiseSupEx(rate, intensity);
                const int n = TOLV_NoiseSupBufferSize(a);
                const std::vector<float> u =
                    tolv_test::UniformNoise(2 * rate, rate + 7u, 3000.0f);
                const std::vector<int16_t> in(u.begin(), u.end());
                std::vector<int16_t> out = in, zeros(size_t(rate / 10), 0);
                std::vector<float> f(in.begin(), in.end());
                for (float &x : f)
                    x /= 32768.0f;
                for (int at = 0; at + n <= int(in.size()); at += n) {
                    EXPECT_EQ(TOLV_DoNoiseSup16(a, &out[at], &out[at]), 1);
                    EXPECT_EQ(TOLV_DoNoiseSup(b, &f[at], &f[at]), 1);
                    TOLV_SetNoiseSupIntensity(b, at / n % 4);
                }
                for (int at = 0; at < int(zeros.size()); at += n)
                    TOLV_DoNoiseSup16(quiet, &zeros[at], &zeros[at]);
                EXPECT_TRUE(DelayError(in, out, delay) <= 3 &&
                            DelayError(zeros, zeros, -1) == 0)
                    << rate << " Hz";
                EXPECT_TRUE(std::equal(
                    f.begin(), f.end(), out.begin(),
                    [](float x, int16_t y) { return x == y / 32768.0f; }));
                for (_TOLV_NOISESUP *ns : {a, b, quiet})
                    EXPECT_EQ(TOLV_DestroyNoiseSup(ns), 1);
            }
        FRESH_CHECK(!::testing::Test::HasFailure());
    });
}

/* Above 32767 saturates; below -32678 (not the clamp value) goes to -32768;
 * the rest truncates toward zero; NaN fails both tests and gives 0. */
TEST(NoiseSup, SaturationThresholdsAndTruncation)
{
    // clang-format off
    for (auto [x, y] : {std::pair{32767.5f, 32767}, {40000.0f, 32767}, {32767.0f, 32767}, {32766.9f, 32766},
            {1.9f, 1}, {-1.9f, -1}, {0.0f, 0}, {-32677.9f, -32677}, {-32678.0f, -32678}, {-32678.5f, -32768},
            {-32700.0f, -32768}, {-1e9f, -32768}, {NAN, 0}, {INFINITY, 32767}, {-INFINITY, -32768}})
        EXPECT_EQ(_NsSaturate(x), y) << x;
    // clang-format on
}

} // namespace
