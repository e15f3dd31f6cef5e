/*
 * Filters of both forms on streams cut into random blocks: the output must
 * be bit-identical to one call over the whole stream, for any number of
 * channels and blocks. Then a walk with an arbitrary start and step, on
 * buffers of exactly their size, must stay inside them.
 */
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "tolv.h"

namespace {

const int kMaxFrames = 1 << 17;

_TOLV_FILTER *MakeFilter(FuzzedDataProvider &fuzz, int channels)
{
    std::vector<double> values(fuzz.ConsumeIntegralInRange<int>(1, 40));
    for (double &v : values)
        v = fuzz.ConsumeFloatingPointInRange<double>(-2.0, 2.0);
    if (fuzz.ConsumeBool()) {
        values.resize(values.size() / 5 * 5);
        return TOLV_CreateFilterFromBiquads(channels, values.size() / 5,
                                            values.empty() ? nullptr
                                                           : values.data());
    }
    const size_t half = (values.size() + 1) / 2;
    std::vector<double> den(values.begin(), values.begin() + half);
    std::vector<double> num(values.begin() + half, values.end());
    den[0] = 1.0;
    if (num.empty())
        num.push_back(1.0);
    return TOLV_CreateFilterFromCoefs(channels, num.size(), num.data(),
                                      den.size(), den.data());
}

/* The whole stream at once on one filter, in random blocks on its twin. */
void CompareSplits(FuzzedDataProvider &fuzz, _TOLV_FILTER *whole,
                   _TOLV_FILTER *split, int channels, int frames)
{
    const size_t n = (size_t)frames * channels;
    std::vector<float> x(n), y(n), z(n);
    for (size_t i = 0; i < n; i++)
        x[i] = (float)((int)((i * 2654435761u) % 2001) - 1000) / 1000.0f;
    TOLV_Filter(whole, x.data(), y.data(), (uint32_t)n);
    for (int done = 0, block = 0; done < frames; done += block) {
        block = fuzz.remaining_bytes() == 0
                    ? frames - done
                    : fuzz.ConsumeIntegralInRange<int>(1, frames - done);
        const size_t at = (size_t)done * channels;
        TOLV_Filter(split, x.data() + at, z.data() + at,
                    (uint32_t)block * channels);
    }
    FUZZ_CHECK(n == 0 || memcmp(y.data(), z.data(), n * sizeof(float)) == 0);
}

/* An arbitrary walk on exactly-sized buffers: AddressSanitizer sees any
 * frame outside them. A step of 0 never ends and is left out. */
void HostileWalk(FuzzedDataProvider &fuzz, _TOLV_FILTER *filter)
{
    const uint32_t count = fuzz.ConsumeIntegralInRange<uint32_t>(0, 4096);
    const uint32_t start = fuzz.ConsumeIntegral<uint32_t>();
    const uint32_t step = fuzz.ConsumeIntegralInRange<uint32_t>(1, UINT32_MAX);
    float *in = static_cast<float *>(malloc(sizeof(float) * (count + 1)));
    float *out = static_cast<float *>(malloc(sizeof(float) * (count + 1)));
    memset(in, 0, sizeof(float) * count);
    TOLV_FilterEx(filter, in, out, count, start, step);
    free(out);
    free(in);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider fuzz(data, size);
    const int channels = fuzz.ConsumeIntegralInRange<int>(1, 8);
    const int frames = fuzz.ConsumeIntegralInRange<int>(
        0, fuzz.ConsumeBool() ? 256 : kMaxFrames);
    const std::string recipe = fuzz.ConsumeBytesAsString(200);
    FuzzedDataProvider twinRecipe(
        reinterpret_cast<const uint8_t *>(recipe.data()), recipe.size());
    FuzzedDataProvider firstRecipe(
        reinterpret_cast<const uint8_t *>(recipe.data()), recipe.size());
    _TOLV_FILTER *whole = MakeFilter(firstRecipe, channels);
    _TOLV_FILTER *split = MakeFilter(twinRecipe, channels);
    if (whole == nullptr || split == nullptr) {
        FUZZ_CHECK(whole == nullptr && split == nullptr);
        return 0;
    }
    CompareSplits(fuzz, whole, split, channels, frames);
    HostileWalk(fuzz, whole);
    TOLV_DestroyFilter(whole);
    TOLV_DestroyFilter(split);
    return 0;
}
