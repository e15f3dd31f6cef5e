/*
 * Both converter kinds on streams cut into random blocks, through the
 * public calls only: every block's output, and the flush that ends the
 * stream, must be bit-identical to one call over the whole stream, and no
 * block may write past its stated room (outputs are exactly that size).
 */
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "tolv.h"

namespace {

const int kMaxFrames = 1 << 15;
/* Pairs of the hold's table, either way, and rates only the polyphase
 * kind takes. */
const int kPairs[][2] = {{48000, 44100}, {44100, 32000}, {16000, 8000},
                         {96000, 48000}, {44100, 22050}, {48000, 16000},
                         {44100, 8000},  {96000, 8000},  {12000, 44100},
                         {7, 5},         {1, 3},         {44100, 44100}};

struct Stream {
    std::vector<float> frames;
    int flushed = 0;
};

/* One block into exactly its room; the frames written join the stream. */
void Block(_TOLV_RESAMPLE *r, const float *x, int frames, int in, int out,
           Stream &s)
{
    const size_t room = (size_t)frames * (size_t)(out / in + 1);
    float *y = static_cast<float *>(malloc(sizeof(float) * (room + 1)));
    const int written = TOLV_Resample(r, x, y, frames);
    FUZZ_CHECK(written >= 0 && (size_t)written <= room);
    s.frames.insert(s.frames.end(), y, y + written);
    free(y);
}

void Flush(_TOLV_RESAMPLE *r, Stream &s)
{
    const int pending = TOLV_ResampleFlushBufferSize(r);
    FUZZ_CHECK(pending >= 0);
    float *tail = static_cast<float *>(malloc(sizeof(float) * (pending + 1)));
    s.flushed = TOLV_ResampleFlushBuffersEx(r, tail, 0);
    FUZZ_CHECK(s.flushed >= 0 && s.flushed <= pending);
    s.frames.insert(s.frames.end(), tail, tail + s.flushed);
    free(tail);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider fuzz(data, size);
    const int *pair = kPairs[fuzz.ConsumeIntegralInRange<size_t>(
        0, sizeof kPairs / sizeof kPairs[0] - 1)];
    const bool swap = fuzz.ConsumeBool(), hold = fuzz.ConsumeBool();
    const int in = pair[swap ? 1 : 0], out = pair[swap ? 0 : 1];
    char config[64];
    snprintf(config, sizeof config, "type=%s, order=%d",
             hold ? "zoh" : "polyphase", fuzz.ConsumeIntegralInRange(1, 16));
    const int frames = fuzz.ConsumeIntegralInRange<int>(
        0, fuzz.ConsumeBool() ? 256 : kMaxFrames);
    std::vector<float> x(frames);
    for (int i = 0; i < frames; i++)
        x[i] = (float)((int)((i * 2654435761u) % 2001) - 1000) / 1000.0f;

    _TOLV_RESAMPLE *whole = TOLV_ResampleInit(in, out, config);
    _TOLV_RESAMPLE *split = TOLV_ResampleInit(in, out, config);
    FUZZ_CHECK(whole != nullptr && split != nullptr);
    Stream a, b;
    Block(whole, x.data(), frames, in, out, a);
    for (int done = 0, block = 0; done < frames; done += block) {
        block = fuzz.remaining_bytes() == 0
                    ? frames - done
                    : fuzz.ConsumeIntegralInRange<int>(0, frames - done);
        Block(split, x.data() + done, block, in, out, b);
    }
    Flush(whole, a);
    Flush(split, b);
    FUZZ_CHECK(a.frames.size() == b.frames.size());
    FUZZ_CHECK(a.frames.empty() ||
               memcmp(a.frames.data(), b.frames.data(),
                      a.frames.size() * sizeof(float)) == 0);
    TOLV_ResampleDestroy(whole);
    TOLV_ResampleDestroy(split);
    return 0;
}
