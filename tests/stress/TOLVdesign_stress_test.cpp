/*
 * Thread stress of the designs: threads turning texts into filters and rate
 * pairs into resampler prototypes at once, while another keeps writing
 * process-wide settings. The designs share nothing but constant tables and
 * the settings store, so each result must be bit for bit that of the same
 * work done alone beforehand. Built and run only under ThreadSanitizer.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "keel.h"
#include "tolv.h"

namespace {

const char *const kSpecs[] = {
    // clang-format off
    "type=lowpass, approximation=butterworth, fpass=1000, fstop=2000, Ap=1, As=40, fs=16000",
    "type=hp, approximation=cheby1, fpass=0.4, fstop=0.3, Ap=0.5, As=50, nc=2",
    "type=bandpass, approximation=cheby2, fpass1=300, fpass2=3400, fstop1=200, fstop2=4000, As=60, fs=16000",
    "type=bs, approximation=ellip, fpass1=0.2, fpass2=0.6, fstop1=0.3, fstop2=0.45, Ap=1, As=60",
    "biquads=[-1.2 0.5 0.1 0.2 0.1; -0.3 0.1 1 2 1]", "numerator=[0.2 0.4 0.2], denominator=[1 -0.5 0.1]",
    // clang-format on
};
const struct {
    int in, out;
    const char *config;
} kPairs[] = {{44100, 48000, nullptr},
              {8000, 16000, "order=12"},
              {48000, 32000, "type=zoh"},
              {11025, 22050, "type=poly, delaycompensation=off"}};

/* Work i as bits: the impulse response of design i over two channels'
 * worth of samples, or a block of a fresh converter and its flush. */
std::vector<uint32_t> Work(int i)
{
    std::vector<float> in(512, 0.0f), out(8192, 0.0f);
    int n = 512;
    if (i < 6) {
        _TOLV_FILTER *filter = TOLV_CreateFilter("%s", kSpecs[i]);
        if (filter == nullptr)
            return {};
        in[0] = in[1] = 1.0f;
        TOLV_Filter(filter, in.data(), out.data(), n);
        TOLV_DestroyFilter(filter);
    } else {
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(
            kPairs[i - 6].in, kPairs[i - 6].out, kPairs[i - 6].config);
        for (int k = 0; k < 256; k++)
            in[k] = (float)((k * 13) % 29) / 29.0f - 0.5f;
        n = TOLV_Resample(r, in.data(), out.data(), 256);
        n += TOLV_ResampleFlushBuffersEx(r, out.data() + n, 0);
        TOLV_ResampleDestroy(r);
    }
    return std::vector<uint32_t>((uint32_t *)out.data(),
                                 (uint32_t *)out.data() + n);
}

TEST(DesignStress, FiltersAndPrototypesDesignedAtOnceMatchTheirLoneDesigns)
{
    std::vector<std::vector<uint32_t>> alone;
    for (int i = 0; i < 10; i++)
        alone.push_back(Work(i));
    for (int i = 0; i < 6; i++)
        ASSERT_FALSE(alone[i].empty()) << kSpecs[i];
    std::atomic<bool> done{false};
    std::atomic<int> started{0}, mismatches{0};
    std::thread writer([&] { // writes the settings while the designs read them
        for (int i = 0; !done.load(); i++) {
            KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=%d",
                                    1024 + i % 7);
            KEELSETTINGS_SetDefaultEx(nullptr, "libtolv.stress.unrelated=%d",
                                      i);
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
        threads.emplace_back([&, t] {
            for (started++; started.load() < 4;) // all start together
                std::this_thread::yield();
            for (int r = 0; r < 40; r++) {
                const int s = (t + r) % 6, p = 6 + (t + 2 * r) % 4;
                mismatches += (Work(s) != alone[s]) + (Work(p) != alone[p]);
            }
        });
    for (std::thread &t : threads)
        t.join();
    done = true;
    writer.join();
    EXPECT_EQ(mismatches.load(), 0);
}

} // namespace
