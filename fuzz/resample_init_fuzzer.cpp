/*
 * TOLV_ResampleInit on arbitrary configuration texts and rate pairs; a
 * converter that comes out streams one block, is flushed and destroyed.
 *
 * The polyphase prototype has 2 max(L, M) order + 1 taps and nothing limits
 * it: two coprime rates near 200 kHz with the default order ask for tens of
 * millions of taps. The rates passed here are capped so that no input asks
 * for more than kMaxTaps; the library itself is left as it is.
 */
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <algorithm>
#include <cstring>
#include <numeric>

#include "TOLVresample/resample.h"
#include "fuzz_support.h"

namespace {

/* With these two every run stays within a few million multiply-adds: the
 * taps bound both the set-up and K per output tick, and the block bounds
 * the ticks. */
const int64_t kMaxTaps = 1 << 14;
const int kMaxFrames = 256;
/* The zero-order-hold rates, a rate only the polyphase kind takes, and the
 * refused ones. */
const int kRates[] = {8000,  11025, 16000, 22050, 32000, 44100,
                      48000, 96000, 12000, 1,     0,     -1};

int Rate(FuzzedDataProvider &fuzz)
{
    if (fuzz.ConsumeBool())
        return fuzz.PickValueInArray(kRates);
    return fuzz.ConsumeIntegralInRange<int>(1, 200000);
}

/* The order the polyphase set-up will read: the text is cut to 256 bytes
 * and lowered first, and the setting (left at its default) is the
 * fallback. */
int64_t Order(const char *config)
{
    char text[257] = {0};
    strncpy(text, config, 256);
    KEELSTRING_Strlwr(text, 0);
    const int fallback = (int)KEELSETTINGS_GetIntEx(
        nullptr, "libtolv.resample.polyphase.order=30");
    return KEELSTRING_GetIntegerValueFromString(text, "order", fallback);
}

/* Exactly `count` samples, so that one sample too many is a crash. */
float *NewSamples(int64_t count)
{
    return static_cast<float *>(
        malloc(sizeof(float) * (size_t)(count > 0 ? count : 1)));
}

void Stream(_TOLV_RESAMPLE *resampler, int in, int out, int frames,
            int maxFlush)
{
    const int g = std::gcd(in, out);
    const int64_t up = out / g, down = in / g;
    /* The grid gives at most frames * (L / M + 1) output frames. */
    const int64_t room = (int64_t)frames * (up / down + 1);
    float *input = NewSamples(frames);
    float *output = NewSamples(room);
    for (int i = 0; i < frames; i++)
        input[i] = (float)((i * 37) % 101 - 50) / 50.0f;
    const int written = TOLV_Resample(resampler, input, output, frames);
    FUZZ_CHECK(written >= 0 && written <= room);

    const int pending = TOLV_ResampleFlushBufferSize(resampler);
    FUZZ_CHECK(pending >= 0);
    if (resampler->kind == TOLV_RESAMPLE_ZOH)
        FUZZ_CHECK(pending == 0);
    float *tail = NewSamples(pending);
    const int flushed = TOLV_ResampleFlushBuffersEx(resampler, tail, maxFlush);
    FUZZ_CHECK(flushed >= 0 && flushed <= pending);
    if (maxFlush > 0)
        FUZZ_CHECK(flushed <= maxFlush);
    free(tail);
    free(output);
    free(input);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider fuzz(data, size);
    const int in = Rate(fuzz);
    const int out = Rate(fuzz);
    const int frames = fuzz.ConsumeIntegralInRange<int>(0, kMaxFrames);
    const int maxFlush = fuzz.ConsumeIntegralInRange<int>(-1, 64);
    const ExactText config(fuzz.ConsumeRemainingBytesAsString());

    if (in >= 1 && out >= 1) {
        const int g = std::gcd(in, out);
        const int64_t longer = std::max(in, out) / g;
        if (2 * longer * Order(config.get()) > kMaxTaps)
            return -1;
    }
    _TOLV_RESAMPLE *resampler = TOLV_ResampleInit(in, out, config.get());
    if (in < 1 || out < 1) {
        FUZZ_CHECK(resampler == nullptr);
        return 0;
    }
    FUZZ_CHECK(resampler != nullptr);
    if (resampler->impl == nullptr) {
        /* A refused order leaves a handle no operation survives; the host
         * can only drop it. */
        FUZZ_CHECK(resampler->kind == TOLV_RESAMPLE_POLYPHASE &&
                   Order(config.get()) < 1);
        free(resampler);
        return 0;
    }
    Stream(resampler, in, out, frames, maxFlush);
    FUZZ_CHECK(TOLV_ResampleDestroy(resampler) == 1);
    return 0;
}
