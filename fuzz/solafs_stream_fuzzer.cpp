/*
 * SOLAFS on streams offered and taken in random pieces. At one speed the
 * output must not depend on how the stream was cut (a channel of an
 * interleaved pair against a mono twin driven in other pieces); with a
 * speed that changes at random, every call must stay inside the caller's
 * buffers, which are allocated at exactly their stated size.
 */
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "TOLVsolafs/solafs.h"
#include "fuzz_support.h"

namespace {

const int kMaxFrames = 1 << 15;

/* The engine's destructor only reports; the fuzzer releases the memory. */
void Release(_TOLV_SOLAFS *s)
{
    TOLV_SolafsDestroy(s);
    KEELMEM_DisposeMemDescr(s->memDescr);
}

struct Piece {
    int offer, capacity;
    float speed;
};

/* Offers the channel in the given pieces, taking output behind each offer
 * until a call gives nothing; the room is exactly the stated size. */
std::vector<float> Drive(_TOLV_SOLAFS *s, const std::vector<float> &in,
                         int channels, int channel,
                         const std::vector<Piece> &pieces)
{
    std::vector<float> out;
    const int frames = (int)in.size() / channels, len = s->overlapLength;
    size_t k = 0;
    for (int next = 0; next < frames; k++) {
        const Piece p = pieces[k % pieces.size()];
        const int got =
            TOLV_SolafsInputData(s, channel, &in[(size_t)next * channels],
                                 std::min(p.offer, frames - next), p.speed);
        next += got;
        int n = 0, produced = 0;
        const size_t room = (size_t)std::max(p.capacity, len) * channels;
        do {
            float *block = static_cast<float *>(malloc(sizeof(float) * room));
            n = TOLV_SolafsOutputData(s, channel, block, p.capacity);
            FUZZ_CHECK(n >= 0 && n % len == 0 && (size_t)n * channels <= room);
            for (int f = 0; f < n; f++)
                out.push_back(block[(size_t)channel + (size_t)f * channels]);
            free(block);
            produced += n;
        } while (n > 0);
        if (got == 0 && produced == 0)
            break; /* stalled */
    }
    return out;
}

std::vector<Piece> Pieces(FuzzedDataProvider &fuzz, bool changeSpeed,
                          float speed)
{
    std::vector<Piece> pieces(fuzz.ConsumeIntegralInRange(1, 16));
    for (Piece &p : pieces) {
        p.offer = fuzz.ConsumeIntegralInRange(1, 5000);
        p.capacity = fuzz.ConsumeIntegralInRange(-1, 5000);
        p.speed =
            changeSpeed ? fuzz.ConsumeFloatingPointInRange(0.05f, 3.0f) : speed;
    }
    return pieces;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider fuzz(data, size);
    const int rate = fuzz.ConsumeIntegralInRange(4000, 48000);
    const int ms = fuzz.ConsumeIntegralInRange(1, 100);
    if ((int64_t)ms * rate / 1000 < 8)
        return -1; /* blocks of no length never end an output call */
    const bool changeSpeed = fuzz.ConsumeBool();
    const float speed = fuzz.ConsumeFloatingPointInRange(0.25f, 3.0f);
    const int frames =
        fuzz.ConsumeIntegralInRange(0, fuzz.ConsumeBool() ? 4096 : kMaxFrames);
    std::vector<float> mono(frames), stereo(2 * (size_t)frames);
    for (int i = 0; i < frames; i++) {
        mono[i] = (float)((int)((i * 2654435761u) % 2001) - 1000) / 1000.0f;
        stereo[2 * i] = -mono[i];
        stereo[2 * i + 1] = mono[i];
    }
    const std::vector<Piece> a = Pieces(fuzz, changeSpeed, speed);
    const std::vector<Piece> b = Pieces(fuzz, changeSpeed, speed);
    _TOLV_SOLAFS *one = TOLV_SolafsCreate(ms, rate, 1);
    _TOLV_SOLAFS *two = TOLV_SolafsCreate(ms, rate, 2);
    const std::vector<float> x = Drive(one, mono, 1, 0, a);
    const std::vector<float> y = Drive(two, stereo, 2, 1, b);
    if (!changeSpeed) {
        const size_t common = std::min(x.size(), y.size());
        FUZZ_CHECK(common == 0 ||
                   memcmp(x.data(), y.data(), common * sizeof(float)) == 0);
    }
    TOLV_SolafsTranslateCursorPosition(one, (int64_t)x.size());
    Release(one);
    Release(two);
    return 0;
}
