/*
 * Helpers of the resampler tests: message capture, access to the private
 * state, and a direct model of the polyphase converter.
 */
#ifndef TOLV_RESAMPLE_SUPPORT_H
#define TOLV_RESAMPLE_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "TOLVresample/resample.h"

struct CapturedMessage {
    int level;
    std::string text;
};

/* Collects every report while a test runs; settings go back to their
 * defaults afterwards. */
class ResampleTest : public ::testing::Test {
protected:
    std::vector<CapturedMessage> messages;

    static void Capture(int level, int, const char *text, void *user)
    {
        static_cast<std::vector<CapturedMessage> *>(user)->push_back(
            {level, text});
    }
    void SetUp() override { KEELDEBUG_SetMessageHandler(Capture, &messages); }
    void TearDown() override
    {
        KEELDEBUG_SetMessageHandler(nullptr, nullptr);
        KEELSETTINGS_Clear();
    }
};

inline _TOLV_POLYPHASE *Poly(_TOLV_RESAMPLE *r)
{
    return static_cast<_TOLV_POLYPHASE *>(r->impl);
}
inline _TOLV_ZOH *Zoh(_TOLV_RESAMPLE *r)
{
    return static_cast<_TOLV_ZOH *>(r->impl);
}

inline std::vector<float> Noise(size_t n, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<float> x(n);
    for (float &v : x)
        v = dist(gen);
    return x;
}

/* Room for what a block of `frames` can give at the ratio L / M. */
inline size_t OutputRoom(const _TOLV_RESAMPLE *r, int frames)
{
    int64_t up, down;
    if (r->kind == TOLV_RESAMPLE_POLYPHASE) {
        up = static_cast<_TOLV_POLYPHASE *>(r->impl)->up;
        down = static_cast<_TOLV_POLYPHASE *>(r->impl)->down;
    } else {
        up = static_cast<_TOLV_ZOH *>(r->impl)->up;
        down = static_cast<_TOLV_ZOH *>(r->impl)->down;
    }
    return static_cast<size_t>(frames) * static_cast<size_t>(up / down + 1) + 1;
}

/* Feeds `x` in blocks of the given sizes (cycled until the input is used up)
 * and returns everything the blocks gave. */
inline std::vector<float> RunBlocks(_TOLV_RESAMPLE *r,
                                    const std::vector<float> &x,
                                    const std::vector<int> &sizes)
{
    std::vector<float> out;
    size_t pos = 0, k = 0;
    while (pos < x.size()) {
        int n = sizes[k++ % sizes.size()];
        if (pos + static_cast<size_t>(n) > x.size())
            n = static_cast<int>(x.size() - pos);
        std::vector<float> block(OutputRoom(r, n));
        int got = TOLV_Resample(r, x.data() + pos, block.data(), n);
        EXPECT_GE(got, 0);
        out.insert(out.end(), block.begin(), block.begin() + got);
        pos += static_cast<size_t>(n);
    }
    return out;
}

/* The polyphase converter written as a plain convolution: tick m belongs to
 * input frame n = floor(m M / L) with phase p = m M - n L, and is the sum in
 * age order of x[n - t] * row_p[t], x being 0 outside the stream. Ticks of
 * frames past the end of the input are the flush's, whose running sum is
 * f32. Gives ticks [first, first + count). */
inline std::vector<float> ModelTicks(const _TOLV_POLYPHASE *s,
                                     const std::vector<float> &x,
                                     int64_t first, int64_t count)
{
    std::vector<float> out;
    const int64_t n_in = static_cast<int64_t>(x.size());
    for (int64_t m = first; m < first + count; m++) {
        int64_t n = m * s->down / s->up;
        int64_t p = m * s->down - n * s->up;
        const double *row = s->phaseFilters[p];
        bool flushed = n >= n_in;
        double sum = 0.0;
        float fsum = 0.0f;
        for (int64_t t = 0; t < s->tapsPerPhase; t++) {
            int64_t i = n - t;
            double v = (i >= 0 && i < n_in) ? static_cast<double>(x[i]) : 0.0;
            if (flushed)
                fsum = static_cast<float>(static_cast<double>(fsum) + v * row[t]);
            else
                sum += v * row[t];
        }
        out.push_back(flushed ? fsum : static_cast<float>(sum));
    }
    return out;
}

/* Ticks that n input frames make on the grid: those with m M < n L. */
inline int64_t TicksOf(int64_t n, int64_t up, int64_t down)
{
    return (n * up + down - 1) / down;
}

#endif
