/*
 * Latency of the streaming objects as a host sees it through the public
 * interface: the polyphase resampler's delay compensation and the fraction
 * of a sample it leaves, the SOLAFS engine's start-up and hold-back, and a
 * filter's output that starts with its first input frame. The figures are
 * printed as well, for the hosts guide (docs/hosts.md).
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <vector>

#include "tolv.h"

namespace {

constexpr double kPi = 3.141592653589793;

struct Grid {
    int L, M, N, D;
    double residual; /* N / (2 M) - D: delay left, in output frames */
};

/* The polyphase grid at the default order 30. */
Grid PolyphaseGrid(int in, int out)
{
    const int g = std::gcd(in, out), L = out / g, M = in / g;
    const int N = 2 * std::max(L, M) * 30;
    const int D = int(std::round(double(N) / (2.0 * M)));
    return {L, M, N, D, double(N) / (2.0 * M) - D};
}

/* Delay of a converted 1000 Hz sine against the ideal one, in output frames,
 * by the phase of its projection over 200 ms (a whole number of periods at
 * every rate here), taken from 100 ms on. The input goes in blocks of 1000
 * frames, and every output frame of the span must lie on the fitted sine. */
double MeasuredDelay(_TOLV_RESAMPLE *r, int in, int out)
{
    const double f = 1000.0;
    std::vector<float> x(size_t(in) / 2), y(x.size() * (out / in + 1) + 1);
    for (size_t n = 0; n < x.size(); n++)
        x[n] = float(0.5 * std::sin(2.0 * kPi * f * double(n) / in));
    int got = 0;
    for (size_t at = 0; at < x.size(); at += 1000) {
        const int frames = int(std::min<size_t>(1000, x.size() - at));
        got += TOLV_Resample(r, x.data() + at, y.data() + got, frames);
    }
    EXPECT_GE(got, 3 * out / 10);
    double I = 0.0, Q = 0.0;
    for (int k = out / 10; k < 3 * out / 10; k++) {
        const double theta = 2.0 * kPi * f * k / out;
        I += y[size_t(k)] * std::sin(theta);
        Q += y[size_t(k)] * std::cos(theta);
    }
    const double phase = std::atan2(-Q, I);
    const double amplitude = 2.0 * std::hypot(I, Q) / (out / 5);
    EXPECT_NEAR(amplitude, 0.5, 1e-3);
    double worst = 0.0;
    for (int k = out / 10; k < 3 * out / 10; k++)
        worst = std::max(
            worst,
            std::fabs(y[size_t(k)] -
                      amplitude * std::sin(2.0 * kPi * f * k / out - phase)));
    EXPECT_LT(worst, 5e-4) << in << " to " << out;
    return phase * out / (2.0 * kPi * f);
}

// D = round(N / (2 M)) output frames are dropped at the start and flushed at
// the end; the prototype's true delay is N / 2 grid steps, N / (2 M) output
// frames, so non-integer quotients leave a fraction: -0.347 output samples
// at 44100 to 48000 (the output is that much early). Measured on a sine.
TEST(Latency, PolyphaseDelayCompensationAndItsResidual)
{
    struct Row {
        int in, out, D;
        double residual;
    };
    std::printf("%-7s %-7s %5s %5s %7s %4s %9s %9s\n", "in", "out", "L", "M",
                "N", "D", "N/(2M)-D", "measured");
    for (Row row : {Row{44100, 48000, 33, -0.347},
                    {48000, 44100, 30, 0.0},
                    {8000, 16000, 60, 0.0},
                    {16000, 8000, 30, 0.0},
                    {22050, 48000, 65, 0.306},
                    {32000, 44100, 41, 0.344},
                    {11025, 48000, 131, -0.388},
                    {48000, 48000, 30, 0.0}}) {
        const Grid g = PolyphaseGrid(row.in, row.out);
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(row.in, row.out, nullptr);
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), row.D);
        EXPECT_EQ(g.D, row.D);
        EXPECT_NEAR(g.residual, row.residual, 5e-4);
        const double measured = MeasuredDelay(r, row.in, row.out);
        EXPECT_NEAR(measured, g.residual, 2e-3) << row.in << " to " << row.out;
        std::printf("%-7d %-7d %5d %5d %7d %4d %9.4f %9.4f\n", row.in, row.out,
                    g.L, g.M, g.N, g.D, g.residual, measured);
        TOLV_ResampleDestroy(r);
    }
    // Without compensation the whole delay stays in the stream (the phase
    // tells it modulo the sine's period of 48 frames).
    _TOLV_RESAMPLE *r =
        TOLV_ResampleInit(44100, 48000, "delaycompensation=false");
    EXPECT_NEAR(
        std::remainder(MeasuredDelay(r, 44100, 48000) - 9600.0 / 294.0, 48.0),
        0.0, 2e-3);
    TOLV_ResampleDestroy(r);
}

/* Feeds one frame at a time until the first block comes out; returns the
 * frames accepted by then. */
int FramesBeforeFirstBlock(_TOLV_SOLAFS *s, int limit)
{
    std::vector<float> out(4096);
    const float one = 0.25f;
    for (int fed = 1; fed <= limit; fed++) {
        if (TOLV_SolafsInputData(s, 0, &one, 1, 1.0f) != 1)
            return -1;
        if (TOLV_SolafsOutputData(s, 0, out.data(), int(out.size())) > 0)
            return fed;
    }
    return -1;
}

// A block needs more than 3.5 W frames ahead of the analysis position: the
// first one comes with frame floor(3.5 W) + 1, and at speed 1 after F frames
// ceil((F - 3.5 W) / (W / 2)) blocks are out, so from 3 W + 1 to 3.5 W
// frames wait inside once output has begun (60 to 70 ms at 20 ms frames).
TEST(Latency, SolafsStartUpAndHoldBack)
{
    std::printf("%-6s %-4s %5s %6s %12s\n", "rate", "ms", "W", "first",
                "held back");
    for (auto [rate, ms, first] : {std::tuple{44100, 20, 3081},
                                   {48000, 20, 3361},
                                   {16000, 20, 1121},
                                   {8000, 10, 281}}) {
        const int W = (ms * rate / 1000) & ~7, half = W / 2;
        _TOLV_SOLAFS *s = TOLV_SolafsCreate(ms, rate, 1);
        EXPECT_EQ(FramesBeforeFirstBlock(s, 8 * W), first) << rate;
        TOLV_SolafsDestroy(s);

        // Any feed: the frames out follow the count of frames in, and at
        // speed 1 output frame f is input frame f (up to the rounding of a
        // cross-fade between equal values).
        s = TOLV_SolafsCreate(ms, rate, 1);
        std::vector<float> source(200 * 997), sink(200 * 997 + 4096);
        for (size_t n = 0; n < source.size(); n++)
            source[n] = float(std::sin(0.001 * double(n * n % 100003)));
        int fedTotal = 0, outTotal = 0, least = 1 << 30, most = 0;
        for (int round = 0; round < 200; round++) {
            const int n = 1 + (round * 389) % 997;
            fedTotal +=
                TOLV_SolafsInputData(s, 0, source.data() + fedTotal, n, 1.0f);
            outTotal +=
                TOLV_SolafsOutputData(s, 0, sink.data() + outTotal, 4096);
            const double excess = fedTotal - 3.5 * W;
            const int blocks = excess > 0 ? int(std::ceil(excess / half)) : 0;
            ASSERT_EQ(outTotal, blocks * half) << rate << " after " << fedTotal;
            if (blocks > 0) {
                least = std::min(least, fedTotal - outTotal);
                most = std::max(most, fedTotal - outTotal);
            }
        }
        for (int n = 0; n < outTotal; n++)
            ASSERT_NEAR(sink[size_t(n)], source[size_t(n)],
                        std::fabs(source[size_t(n)]) * 2e-7f)
                << rate << ", frame " << n;
        EXPECT_GT(least, 3 * W);
        EXPECT_LE(most, 7 * W / 2);
        std::printf("%-6d %-4d %5d %6d %5d to %4d\n", rate, ms, W, first, least,
                    most);
        TOLV_SolafsDestroy(s);
    }
}

// A filter adds no block latency: its first input frame gives its first
// output frame (b0 x[0] for the direct form); what delay there is, is the
// filter's own group delay.
TEST(Latency, FiltersAnswerTheirFirstFrame)
{
    const double b[3] = {0.25, 0.5, 0.25}, a[3] = {1.0, -0.5, 0.125};
    _TOLV_FILTER *direct = TOLV_CreateFilterFromCoefs(1, 3, b, 3, a);
    _TOLV_FILTER *designed = TOLV_CreateFilter(
        "type=lowpass, approximation=butter, order=4, fpass=4000, fs=16000");
    ASSERT_TRUE(direct && designed);
    float impulse[4] = {1.0f, 0.0f, 0.0f, 0.0f}, y[4];
    ASSERT_EQ(TOLV_Filter(direct, impulse, y, 4), 1);
    EXPECT_EQ(y[0], 0.25f);
    EXPECT_EQ(y[1], 0.625f);
    ASSERT_EQ(TOLV_Filter(designed, impulse, y, 4), 1);
    EXPECT_GT(y[0], 0.0f);
    TOLV_DestroyFilter(direct);
    TOLV_DestroyFilter(designed);
}

} // namespace
