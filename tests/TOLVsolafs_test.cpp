// SOLAFS time-scale modification against a plain model of the engine: streams
// at one speed, random block splits with speed changes, and unchecked
// arguments that must stay inside the object's memory.
#include "TOLVsolafs/solafs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "lanes.h"
#include "support/messages.h"
#include "support/signal.h"

namespace {

const float kSentinel = -1234.5f;
using Ints = std::vector<int32_t>;

// The engine written out plainly beside the library's object, which every
// call also goes to: the search in double from an energy of 1.0 (strictly
// greater wins), reads outside the window as silence, at most 256 segments.
// Counts, every slot of the caller's block (sentinels where nothing may be
// written) and the cursor must agree; off, only the rules any call keeps.
struct Model {
    struct Seg {
        int32_t start, outEnd;
        float speed;
    };
    _TOLV_SOLAFS *s;
    bool on;
    int32_t half, maxSkew, cap, stride, inputEnd, base = 0, synth = 0;
    int32_t offset = 0, skew = 0, aligned = 0, next = 0, pending = 0;
    float speed = 1.0f;
    int searches = 0;
    std::vector<float> in, ovl, played; // played: the frames written
    std::vector<Seg> segs;

    Model(int ms, int rate, int channels, bool on = true)
        : s(TOLV_SolafsCreate(ms, rate, channels)), on(on),
          half(on ? (ms * rate / 1000 & ~7) / 2 : s->overlapLength),
          maxSkew(4 * half), cap(rate), stride(channels), inputEnd(half),
          in(on ? rate : 0), ovl(on ? half : 0)
    {}
    ~Model() // destroy only reports the descriptor, and disposes of nothing
    {
        const int live = KEELMEM_LiveDescriptorCount();
        tolv_test::Messages messages;
        TOLV_SolafsDestroy(s);
        TOLV_SolafsDestroy(nullptr);
        EXPECT_TRUE(messages.lines.size() == 1 &&
                    messages.Has("Solafs channel") &&
                    messages.lines[0].level == KEEL_LEVEL_LOG &&
                    KEELMEM_LiveDescriptorCount() == live);
        KEELMEM_DisposeMemDescr(s->memDescr);
    }
    int32_t P() const { return int32_t(float(offset) + speed * float(synth)); }
    float At(int64_t q) { return (q -= base) < 0 || q >= cap ? 0 : in[q]; }
    int Input(int ch, const float *x, int frames, float v)
    {
        if (!on)
            return TOLV_SolafsInputData(s, ch, x, frames, v);
        const int32_t drop = P() - base - half;
        const int32_t keep = std::min(inputEnd - base - drop, cap - drop);
        if (drop > 0 && keep > 0)
            std::copy(in.begin() + drop, in.begin() + drop + keep, in.begin());
        base += std::max(drop, 0);
        const int n = std::min(frames, base - inputEnd + cap);
        for (int j = std::max(0, base - inputEnd); j < n; j++)
            in[inputEnd - base + j] = x[ch + j * stride];
        if (inputEnd == half) { // nothing accepted yet: the speed holds now
            speed = v;
            segs.size() == 256 ? segs.pop_back() : void(next++);
            segs.push_back({0, 0, v});
        } else if (v != segs.back().speed && segs.size() < 256) {
            segs.push_back({inputEnd - half, segs.back().outEnd, v});
            pending++;
        }
        Seg &g = segs.back(); // a change the table cannot hold plays as g
        g.outEnd = int32_t(float(n) / g.speed + float(g.outEnd));
        inputEnd += n;
        EXPECT_EQ(TOLV_SolafsInputData(s, ch, x, frames, v), n);
        return n;
    }
    int32_t Search(int32_t p)
    {
        int32_t best = 0;
        double top = 0.0;
        for (int c = 0; c < maxSkew / 4; c++) {
            double dot = 0.0, energy = 1.0;
            for (int i = 0; i < half / 8; i++) {
                const double x = At(int64_t(p) + 4 * c + 8 * i);
                energy += x * x, dot += x * double(ovl[8 * i]);
            }
            if (dot / std::sqrt(energy) > top)
                top = dot / std::sqrt(energy), best = 4 * c;
        }
        return best;
    }
    int Output(int ch, int capacity)
    {
        std::vector<float> out(std::max(capacity, half) * stride, kSentinel);
        std::vector<float> lib = out;
        int n = 0;
        for (int32_t p = P(); on && p < inputEnd - 2 * maxSkew;) {
            for (int j = 0; j < half; j++)
                ovl[j] = At(half + aligned + j);
            synth += half;
            if (pending > 0 && segs[next].speed != speed &&
                p >= segs[next].start) {
                const float y = float(synth), v = segs[next++].speed;
                offset = int32_t((speed * y - v * y) + float(offset));
                speed = v, pending--;
            }
            const int64_t predicted = int64_t(skew) + (p = P()) - synth;
            const bool search = predicted < 0 || predicted > maxSkew;
            skew = search ? Search(p) : int32_t(predicted);
            searches += search, aligned = p + skew;
            for (int j = 0; j < half; j++) { // fade-in product in f32
                const float w = float((float(j) + 1.0) / (float(half) + 1.0));
                ovl[j] = float(ovl[j] * (1.0 - w) + w * At(aligned + j));
                out[ch + (n + j) * stride] = ovl[j];
                played.push_back(ovl[j]);
            }
            if (capacity - (n += half) < half)
                break;
        }
        const int got = TOLV_SolafsOutputData(s, ch, lib.data(), capacity);
        EXPECT_TRUE(std::count(lib.begin(), lib.end(), kSentinel) ==
                        long(lib.size()) - got &&
                    got % half == 0 && s->segmentCount <= 256 &&
                    s->nextSegment + s->pendingSegments == s->segmentCount);
        if (!on)
            return got;
        EXPECT_EQ(got, n);
        EXPECT_TRUE(out == lib); // the model's frames, sentinels elsewhere
        EXPECT_EQ((Ints{s->skew, s->alignedPos, s->inputBase, s->synthesisPos,
                        s->analysisOffset, s->nextSegment, s->segmentCount}),
                  (Ints{skew, aligned, base, synth, offset, next,
                        int32_t(segs.size())}));
        return n;
    }
    void Translate(int64_t pos) // the last segment takes any later pos
    {
        if (!on)
            return void(TOLV_SolafsTranslateCursorPosition(s, pos));
        size_t i = next > 0 && pos > segs[0].outEnd && segs.size() > 1;
        while (i > 0 && i + 1 < segs.size() && segs[i].outEnd < pos)
            i++;
        const int64_t from = i ? segs[i - 1].outEnd : 0, at = pos - from;
        EXPECT_EQ(
            TOLV_SolafsTranslateCursorPosition(s, pos),
            next ? int32_t(float(at) * segs[i].speed + float(segs[i].start))
                 : 0)
            << pos;
    }
};

// Calls of 80 frames drained in blocks of 40, W = 80 at 8000 Hz: over 24000
// frames speed 1.5 gives 396 blocks, 393 searched, 0.75 gives 791 and 785, n
// frames last about n / speed less 3.5 W held back. At speed 1 nothing is
// searched and the input comes back within an ulp. A pass needs 4 W ahead of
// p, the window keeps W / 2 behind: 223 ms stalls, 250 ms gives no block.
TEST(SolafsTest, StreamsAtConstantSpeed)
{
    struct Row {
        int ms;
        float speed;
        int frames, blocks, searches;
        bool stalls;
    };
    // clang-format off
    for (const Row &r : {Row{10, 1.5f, 24000, 396, 393, false}, Row{10, 0.75f, 24000, 791, 785, false},
            Row{10, 1.0f, 12000, -1, 0, false}, Row{222, 0.75f, 40000, -1, -1, false},
            Row{223, 0.75f, 40000, -1, -1, true}, Row{250, 1.0f, 40000, 0, 0, true}}) {
        // clang-format on
        const std::vector<float> in = tolv_test::UniformNoise(r.frames, 1);
        Model pair(r.ms, 8000, 1);
        bool stalled = false;
        for (int at = 0, got; at < r.frames && !stalled; at += got) {
            got = pair.Input(0, &in[at], std::min(80, r.frames - at), r.speed);
            int blocks = 0;
            while (pair.Output(0, 40) > 0)
                blocks++;
            stalled = got == 0 && blocks == 0;
        }
        const int half = pair.half, blocks = int(pair.played.size()) / half;
        EXPECT_TRUE(stalled == r.stalls && (blocks > 0) == (r.ms < 250));
        EXPECT_TRUE(r.blocks < 0 || blocks == r.blocks) << blocks;
        EXPECT_TRUE(r.searches < 0 || pair.searches == r.searches)
            << pair.searches;
        EXPECT_TRUE(r.stalls || std::fabs(blocks * half - r.frames / r.speed) <
                                    8 * half / r.speed + half)
            << blocks;
        for (size_t f = 0; r.speed == 1.0f && f < pair.played.size(); f++)
            ASSERT_NEAR(pair.played[f], in[f],
                        std::ldexp(std::fabs(in[f]), -23))
                << f;
    }
}

// Noise, then a period of 16 frames (every fourth candidate ties: the smallest
// wins), then silence (every score 0: skew 0), over and over.
float SignalAt(int i)
{
    static const std::vector<float> noise = tolv_test::UniformNoise(5000, 3);
    const int part = i / 5000 % 3;
    return part == 0 ? noise[i % 5000] : part == 1 ? i * 7 % 16 / 8.0f - 1 : 0;
}

// W is frameMs * rate / 1000, low three bits cleared: 20 ms at 44100 Hz gives
// W 880, blocks of 440, 55 correlation points, 440 candidates, a window of
// 44100. Random splits, capacities (below one block too), channels, speed
// changes, after segments made before the first frame; the first block needs
// more than 3.5 W, whatever the capacity. Rows reach W = 16 and 8, speeds
// beyond 3 (reads past the newest frame) and more changes than the table
// holds. Rows without the model abuse the unchecked arguments (bad speeds and
// counts, a pad longer than the window, an overflowing frame product): every
// call stays inside the object's arrays (the sanitizer build checks). All of
// it at every vector width of the search.
TEST(SolafsTest, MatchesTheModelUnderRandomSplits)
{
    struct Row {
        int ms, rate, channels, calls, change;
        std::vector<float> speeds;
        bool model;
    };
    // clang-format off
    const Row rows[] = {
        {10, 8000, 1, 400, 6, {0.5f, 0.75f, 1, 1.25f, 1.5f, 2, 3}, true}, {2, 8000, 2, 300, 5, {0.6f, 1, 1.7f, 2.5f}, true},
        {1, 8000, 1, 200, 5, {0.8f, 1.3f, 4}, true}, {20, 44100, 2, 120, 4, {0.7f, 1.0f, 1.4f}, true},
        {10, 8000, 3, 300, 3, {3.5f, 6.0f, 12.0f, 1.0f}, true}, {5, 8000, 2, 700, 1, {0.8f, 1.2f, 1.6f, 2.2f}, true},
        {10, 8000, 2, 60, 1, {3.5f, 10, 1000, 1e30f, -1, -1000, 0}, false},
        {10, 8000, 2, 60, 1, {NAN, 1, INFINITY, -INFINITY, 0.3f, -0.5f}, false}, {5000, 1000, 2, 60, 1, {1.5f}, false},
        {-10, -8000, 2, 60, 1, {1.5f}, false}, {600000, 8000, 2, 60, 1, {1.5f}, false}};
    // clang-format on
    const int widest = _TOLV_VectorLevel();
    for (int level = 0; level <= widest; level++)
        for (const Row &r : rows) {
            _TOLV_CapVectorLevel(level);
            std::mt19937 rng(unsigned(r.ms + r.calls));
            std::vector<float> x((r.calls + 2) * 2000 * r.channels);
            for (size_t i = 0; i < x.size(); i++)
                x[i] = SignalAt(int(i) / r.channels);
            Model pair(r.ms, r.rate, r.channels, r.model);
            EXPECT_TRUE(r.rate != 44100 ||
                        (Ints{pair.half, pair.half / 8, pair.maxSkew / 4,
                              pair.cap} == Ints{440, 55, 440, 44100}));
            pair.Translate(1234);
            float v = r.speeds.back();
            pair.Input(0, x.data(), 0, 2.0f);
            int at = 0;
            if (r.model) { // the first block needs more than 3.5 W
                at = pair.Input(0, x.data(), 7 * pair.half, v);
                EXPECT_EQ(pair.Output(0, -5), 0);
                at += pair.Input(0, &x[at * r.channels], 1, v);
                EXPECT_EQ(pair.Output(0, -5), pair.half);
            }
            for (int call = 0; call < r.calls; call++) {
                v = rng() % r.change ? v : r.speeds[rng() % r.speeds.size()];
                const int ch = int(rng() % r.channels);
                const int frames =
                    r.model || rng() % 7
                        ? int(rng() % 4 ? rng() % 2000 : rng() % 3)
                        : -int(rng() % 3000);
                at += pair.Input(ch, &x[r.model * at * r.channels], frames, v);
                for (int k = int(rng() % 3); k > 0; k--)
                    pair.Output(ch,
                                int(rng() % 4 ? rng() % 4000 : rng() % 3) - 1);
                pair.Translate(
                    rng() %
                    uint32_t(r.model ? pair.segs.back().outEnd + 1000 : 99999));
                for (int64_t pos : {int64_t(-5), INT64_MAX, INT64_MIN})
                    r.model ? void() : pair.Translate(pos);
            }
            EXPECT_TRUE(!r.model || (pair.searches > 0 &&
                                     pair.s->pendingSegments == pair.pending));
        }
    _TOLV_CapVectorLevel(-1);
}

} // namespace
