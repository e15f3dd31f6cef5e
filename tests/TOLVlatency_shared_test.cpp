// Latency through the public interface, printed for docs/hosts.md: the
// polyphase resampler's delay compensation and the fraction it leaves, and
// filters answering their first frame (SOLAFS start-up: TOLVsolafs_test).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <numeric>
#include <vector>

#include "tolv.h"

namespace {

// Delay of a converted 1000 Hz sine in output frames, by the phase of its
// projection over 200 ms from 100 ms on, fed in blocks of 1000 frames; every
// output frame of the span lies on the fitted sine.
double MeasuredDelay(_TOLV_RESAMPLE *r, int in, int out)
{
    const double w = 2.0 * M_PI * 1000.0;
    std::vector<float> x(size_t(in) / 2), y(x.size() * (out / in + 1) + 1);
    for (size_t n = 0; n < x.size(); n++)
        x[n] = float(0.5 * std::sin(w * double(n) / in));
    int got = 0;
    for (size_t at = 0; at < x.size(); at += 1000)
        got += TOLV_Resample(r, x.data() + at, y.data() + got,
                             int(std::min<size_t>(1000, x.size() - at)));
    EXPECT_GE(got, 3 * out / 10);
    double I = 0.0, Q = 0.0, worst = 0.0;
    for (int k = out / 10; k < 3 * out / 10; k++)
        I += y[k] * std::sin(w * k / out), Q += y[k] * std::cos(w * k / out);
    const double phase = std::atan2(-Q, I),
                 gain = std::hypot(I, Q) / (out / 10);
    EXPECT_NEAR(gain, 0.5, 1e-3);
    for (int k = out / 10; k < 3 * out / 10; k++)
        worst = std::max(
            worst, std::fabs(y[k] - gain * std::sin(w * k / out - phase)));
    EXPECT_LT(worst, 5e-4) << in << " to " << out;
    return phase * out / w;
}

// The prototype's delay is N / 2 grid steps, N / (2 M) output frames, with
// N = 2 max(L, M) 30; D = round(N / (2 M)) frames are dropped at the start
// and flushed at the end, so what is left is N / (2 M) - D (negative: early),
// -0.347 output samples at 44100 to 48000. Measured on a sine. Without
// compensation the whole delay stays (the phase tells it modulo the sine's
// period of 48 frames).
TEST(Latency, PolyphaseDelayCompensationAndItsResidual)
{
    std::printf("%-7s %-7s %5s %5s %7s %4s %9s %9s\n", "in", "out", "L", "M",
                "N", "D", "N/(2M)-D", "measured");
    struct Row {
        int in, out, D;
        double residual;
    };
    for (Row row : {Row{44100, 48000, 33, -0.347},
                    {48000, 44100, 30, 0.0},
                    {8000, 16000, 60, 0.0},
                    {16000, 8000, 30, 0.0},
                    {22050, 48000, 65, 0.306},
                    {32000, 44100, 41, 0.344},
                    {11025, 48000, 131, -0.388},
                    {48000, 48000, 30, 0.0}}) {
        const int g = std::gcd(row.in, row.out), L = row.out / g,
                  M = row.in / g, N = 2 * std::max(L, M) * 30;
        const double left = double(N) / (2.0 * M) - row.D;
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(row.in, row.out, nullptr);
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), row.D);
        EXPECT_NEAR(left, row.residual, 5e-4);
        const double measured = MeasuredDelay(r, row.in, row.out);
        EXPECT_NEAR(measured, left, 2e-3) << row.in << " to " << row.out;
        std::printf("%-7d %-7d %5d %5d %7d %4d %9.4f %9.4f\n", row.in, row.out,
                    L, M, N, row.D, left, measured);
        TOLV_ResampleDestroy(r);
    }
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(44100, 48000, "delaycompensation=0");
    const double late = MeasuredDelay(r, 44100, 48000) - 9600.0 / 294.0;
    EXPECT_NEAR(std::remainder(late, 48.0), 0.0, 2e-3);
    TOLV_ResampleDestroy(r);
}

// A filter adds no block latency: its first input frame gives its first
// output frame (b0 x[0] for the direct form); any delay is the filter's own.
TEST(Latency, FiltersAnswerTheirFirstFrame)
{
    const double b[3] = {0.25, 0.5, 0.25}, a[3] = {1.0, -0.5, 0.125};
    _TOLV_FILTER *f = TOLV_CreateFilterFromCoefs(1, 3, b, 3, a);
    float impulse[4] = {1.0f, 0.0f, 0.0f, 0.0f}, y[4];
    EXPECT_TRUE(TOLV_Filter(f, impulse, y, 4) == 1 && y[0] == 0.25f &&
                y[1] == 0.625f);
    TOLV_DestroyFilter(f);
}

} // namespace
