/*
 * TOLV_CreateFilter on arbitrary specification texts. A filter that comes
 * out runs one block of all its channels and is destroyed.
 *
 * The language sets no upper bound on the order: a text may ask for a stop
 * edge a hair away from its pass edge, and the design then needs an order
 * in the millions and as much time and memory as that takes. Such texts
 * are a host's own request, not a fault, so this target skips them before
 * the call, conservatively, from the few values that drive the size.
 */
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "TOLVfilter/design.h"
#include "TOLVfilter/filter.h"
#include "fuzz_support.h"

namespace {

const int kMaxOrder = 512;
const int kMaxChannels = 16;
const float kMaxAs = 300.0f;
/* Stop edges at least this fraction of the largest edge away from every
 * pass edge keep the selectivity ratio of every band type at or above
 * 1 + kMinGap, which with As at most kMaxAs keeps each order estimate in
 * the low thousands. */
const float kMinGap = 0.02f;
const int kFrames = 64;

float Value(const char *text, const char *key, float fallback)
{
    return KEELSTRING_GetFloatValueFromString(text, key, fallback);
}

/* The channel count the text gives, read the way the constructor does:
 * "num_channels" with the truncated "nc" as its default. */
int Channels(const char *text)
{
    const int nc = _TruncToInt32(Value(text, "nc", 1.0f));
    return _TruncToInt32(Value(text, "num_channels", (float)nc));
}

bool SizeIsModest(const char *text)
{
    if (Channels(text) > kMaxChannels)
        return false;
    if (KEELSTRING_GetIntegerValueFromString(text, "order", -1) > kMaxOrder)
        return false;
    const float As = Value(text, "As", -1.0f);
    if (!(As <= kMaxAs))
        return false;
    const float fpass = Value(text, "fpass", -1.0f);
    const float fstop = Value(text, "fstop", -1.0f);
    const float pass[2] = {Value(text, "fpass1", fpass),
                           Value(text, "fpass2", -1.0f)};
    const float stop[2] = {Value(text, "fstop1", fstop),
                           Value(text, "fstop2", -1.0f)};
    float largest = 0.0f;
    for (float e : {pass[0], pass[1], stop[0], stop[1]})
        if (e > 0.0f)
            largest = std::max(largest, e);
    for (float p : pass)
        for (float s : stop)
            if (p > 0.0f && s > 0.0f &&
                !(std::fabs((double)s - (double)p) >=
                  (double)kMinGap * largest))
                return false;
    return true;
}

/* One block over every channel, in place of a host's first buffer. A
 * filter of no channels walks with a step of 0 and never returns, and one of
 * a negative count walks two billion empty frames: both are left unrun. */
void RunBlock(_TOLV_FILTER *filter, uint32_t seed)
{
    const int channels = filter->numChannels;
    if (channels < 1)
        return;
    const size_t count = (size_t)channels * kFrames;
    float *input = static_cast<float *>(malloc(count * sizeof(float)));
    float *output = static_cast<float *>(malloc(count * sizeof(float)));
    for (size_t i = 0; i < count; i++) {
        seed = seed * 1664525u + 1013904223u;
        input[i] = (float)(int32_t)seed * (1.0f / 2147483648.0f);
    }
    FUZZ_CHECK(TOLV_Filter(filter, input, output, (uint32_t)count) == 1);
    FUZZ_CHECK(TOLV_ResetFilter(filter) == 1);
    FUZZ_CHECK(TOLV_FilterEx(filter, input, output, (uint32_t)count, 0,
                             (uint32_t)channels) == 1);
    free(output);
    free(input);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider fuzz(data, size);
    const uint32_t seed = fuzz.ConsumeIntegral<uint32_t>();
    const ExactText text(fuzz.ConsumeRemainingBytesAsString());
    if (!SizeIsModest(text.get()))
        return -1; /* not added to the corpus */

    _TOLV_FILTER *filter = TOLV_CreateFilter("%s", text.get());
    if (filter == nullptr)
        return 0;
    FUZZ_CHECK(filter->filterType >= 0 && filter->filterType <= 3);
    RunBlock(filter, seed);
    FUZZ_CHECK(TOLV_DestroyFilter(filter) == 1);
    return 0;
}
