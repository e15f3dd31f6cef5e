/*
 * Thread stress of the designs: several threads turning specification texts
 * into filters and rate pairs into resampler prototypes at once, while
 * another keeps writing process-wide settings. The designs share nothing
 * but constant tables and the settings store, so each thread's results
 * must be bit for bit those of the same work done alone beforehand.
 * Built and run only under ThreadSanitizer.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "keel.h"
#include "tolv.h"

namespace {

const int kThreads = 4;
const int kRounds = 40;
const int kSamples = 256;

const char *const kSpecs[] = {
    "type=lowpass, approximation=butterworth, fpass=1000, fstop=2000, Ap=1, "
    "As=40, fs=16000",
    "type=hp, approximation=cheby1, fpass=0.4, fstop=0.3, Ap=0.5, As=50, nc=2",
    "type=bandpass, approximation=cheby2, fpass1=300, fpass2=3400, fstop1=200, "
    "fstop2=4000, As=60, fs=16000",
    "type=bs, approximation=ellip, fpass1=0.2, fpass2=0.6, fstop1=0.3, "
    "fstop2=0.45, "
    "Ap=1, As=60",
    "biquads=[-1.2 0.5 0.1 0.2 0.1; -0.3 0.1 1 2 1]",
    "numerator=[0.2 0.4 0.2], denominator=[1 -0.5 0.1]",
};
const int kSpecCount = sizeof kSpecs / sizeof *kSpecs;

struct RatePair {
    int in, out;
    const char *config;
};
const RatePair kPairs[] = {
    {44100, 48000, nullptr},
    {8000, 16000, "order=12"},
    {48000, 32000, "type=zoh"},
    {11025, 22050, "type=poly, delaycompensation=off"},
};
const int kPairCount = sizeof kPairs / sizeof *kPairs;

std::vector<uint32_t> Bits(const float *x, size_t n)
{
    std::vector<uint32_t> bits(n);
    memcpy(bits.data(), x, n * sizeof(float));
    return bits;
}

/* The impulse response of a designed filter, over two channels' worth of
 * interleaved samples. */
std::vector<uint32_t> FilterImpulse(const char *spec)
{
    _TOLV_FILTER *filter = TOLV_CreateFilter("%s", spec);
    if (filter == nullptr)
        return {};
    std::vector<float> in(2 * kSamples, 0.0f), out(2 * kSamples, 0.0f);
    in[0] = in[1] = 1.0f;
    TOLV_Filter(filter, in.data(), out.data(), (uint32_t)in.size());
    TOLV_DestroyFilter(filter);
    return Bits(out.data(), out.size());
}

/* A block of a converter fresh from its set-up, then its flush. */
std::vector<uint32_t> ResampleRamp(const RatePair &pair)
{
    _TOLV_RESAMPLE *resampler =
        TOLV_ResampleInit(pair.in, pair.out, pair.config);
    std::vector<float> in(kSamples), out(4 * kSamples + 4096, 0.0f);
    for (int i = 0; i < kSamples; i++)
        in[i] = (float)((i * 13) % 29) / 29.0f - 0.5f;
    int n = TOLV_Resample(resampler, in.data(), out.data(), kSamples);
    n += TOLV_ResampleFlushBuffersEx(resampler, out.data() + n, 0);
    TOLV_ResampleDestroy(resampler);
    return Bits(out.data(), (size_t)n);
}

TEST(DesignStress, FiltersAndPrototypesDesignedAtOnceMatchTheirLoneDesigns)
{
    std::vector<std::vector<uint32_t>> filters, prototypes;
    for (const char *spec : kSpecs)
        filters.push_back(FilterImpulse(spec));
    for (const RatePair &pair : kPairs)
        prototypes.push_back(ResampleRamp(pair));
    for (const auto &f : filters)
        ASSERT_FALSE(f.empty());

    std::atomic<bool> done{false};
    std::atomic<int> mismatches{0};
    /* Writes to the settings store while the designs read it. */
    std::thread writer([&] {
        for (int i = 0; !done.load(); i++) {
            KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=%d",
                                    1024 + i % 7);
            KEELSETTINGS_SetDefaultEx(nullptr, "libtolv.stress.unrelated=%d",
                                      i);
            std::this_thread::yield();
        }
    });
    std::atomic<int> started{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++)
        threads.emplace_back([&, t] {
            /* All start together, so the designs really overlap. */
            started++;
            while (started.load() < kThreads)
                std::this_thread::yield();
            for (int r = 0; r < kRounds; r++) {
                const int s = (t + r) % kSpecCount,
                          p = (t + 2 * r) % kPairCount;
                if (FilterImpulse(kSpecs[s]) != filters[s])
                    mismatches++;
                if (ResampleRamp(kPairs[p]) != prototypes[p])
                    mismatches++;
            }
        });
    for (std::thread &t : threads)
        t.join();
    done = true;
    writer.join();
    EXPECT_EQ(mismatches.load(), 0);
}

} // namespace
