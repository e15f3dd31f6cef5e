// SOLAFS time-scale modification: frame geometry, streams at one speed (block
// and search counts, durations, pass-through, stall limits), speed segments and
// the cursor, interleaved channels, the search and cross-fade arithmetic, and
// sequences of unchecked arguments that must stay inside the object's memory.
#include "TOLVsolafs/solafs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "support/signal.h"

namespace {

using tolv_test::UniformNoise;
using Points = std::initializer_list<std::pair<int64_t, int64_t>>;
using Messages = std::vector<std::pair<int, std::string>>;
const float kSentinel = -1234.5f;

// The engine's destructor only reports, so the test disposes of the memory.
struct Channel {
    _TOLV_SOLAFS *s;
    Channel(int ms, int rate, int channels = 1)
        : s(TOLV_SolafsCreate(ms, rate, channels))
    {}
    ~Channel() { KEELMEM_DisposeMemDescr(s->memDescr); }
    _TOLV_SOLAFS *operator->() const { return s; }
};

struct Stretch {
    std::vector<float> out;
    int blocks = 0, searches = 0;
    bool stalled = false;
    std::vector<int32_t> positions;
    std::vector<float> speeds;
};

std::function<float(int)> Constant(float v)
{
    return [v](int) { return v; };
}

// Offers the stream in calls of `chunk` frames at the speed of each call's
// first frame; behind every input call takes output until a call gives 0.
// A call that gave one block is recorded: the prediction skew + p -
// synthesisPos tells whether the search ran.
Stretch Drive(_TOLV_SOLAFS *s, const std::vector<float> &in, int chunk,
              const std::function<float(int)> &speedAt, int capacity,
              int channels = 1, int channel = 0)
{
    Stretch r;
    const int frames = int(in.size()) / channels, len = s->overlapLength;
    std::vector<float> block(size_t(std::max(capacity, len)) * channels);
    for (int next = 0; next < frames && !r.stalled;) {
        int got =
            TOLV_SolafsInputData(s, channel, &in[size_t(next) * channels],
                                 std::min(chunk, frames - next), speedAt(next));
        next += got;
        int n, produced = 0;
        do {
            const int32_t skewBefore = s->skew;
            produced += n =
                TOLV_SolafsOutputData(s, channel, block.data(), capacity);
            EXPECT_EQ(n % len, 0);
            for (int f = 0; f < n; f++)
                r.out.push_back(block[size_t(channel + f * channels)]);
            r.blocks += n / len;
            if (n != len)
                continue;
            int64_t predicted =
                int64_t(skewBefore) + s->lastAnalysisPos - s->synthesisPos;
            bool searched = predicted < 0 || predicted > s->maxSkew;
            EXPECT_TRUE(searched ? s->skew % 4 == 0 && s->skew >= 0 &&
                                       s->skew < s->maxSkew
                                 : s->skew == predicted);
            EXPECT_EQ(s->alignedPos, s->lastAnalysisPos + s->skew);
            r.searches += searched;
            r.positions.push_back(s->lastAnalysisPos);
            r.speeds.push_back(s->speed);
        } while (n > 0);
        r.stalled = got == 0 && produced == 0;
    }
    return r;
}

void Capture(int level, int, const char *text, void *user)
{
    static_cast<Messages *>(user)->push_back({level, text});
}

// 20 ms at 44100 Hz: W 880, blocks of 440, 55 correlation points, 440 skew
// candidates, a window of 44100 floats. W is a multiple of 8. Destroy only
// reports the descriptor and releases nothing.
TEST(SolafsTest, FrameGeometryAndDestroy)
{
    struct Geometry {
        int ms, rate, w, points, candidates;
    };
    for (Geometry g : {Geometry{20, 44100, 880, 55, 440},
                       {7, 8000, 56, 3, 28},
                       {1, 8000, 8, 0, 4},
                       {1, 7999, 0, 0, 0}}) {
        Channel c(g.ms, g.rate, 3);
        EXPECT_EQ(
            (std::vector<int32_t>{c->frameLength, c->similarityLength,
                                  c->overlapLength, c->synthesisHop,
                                  c->inputEnd, c->maxSkew, c->inputCapacity,
                                  c->similarityLength / c->correlationStep,
                                  c->maxSkew / c->skewStep, c->channelStride}),
            (std::vector<int32_t>{g.w, g.w / 2, g.w / 2, g.w / 2, g.w / 2,
                                  2 * g.w, g.rate, g.points, g.candidates, 3}))
            << g.ms << " ms";
        EXPECT_EQ(c->speed, 1.0f);
        for (int i = 0; i < c->overlapLength; i++)
            EXPECT_NEAR(c->crossFade[i], (i + 1.0) / (c->overlapLength + 1.0),
                        6e-8);
        for (int i = 0; i < g.points; i++)
            EXPECT_EQ(c->similarityIndex[i], 8 * i + 1 - c->similarityLength);
    }
    Channel c(20, 44100);
    Messages messages;
    int objects = KEELMEM_GetObjectCount(c->memDescr),
        live = KEELMEM_LiveDescriptorCount();
    KEELDEBUG_SetMessageHandler(Capture, &messages);
    TOLV_SolafsDestroy(c.s);
    TOLV_SolafsDestroy(nullptr);
    KEELDEBUG_SetMessageHandler(nullptr, nullptr);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].first, KEEL_LEVEL_LOG);
    EXPECT_NE(messages[0].second.find("Solafs channel"), std::string::npos);
    EXPECT_EQ(KEELMEM_LiveDescriptorCount(), live);
    EXPECT_EQ(KEELMEM_GetObjectCount(c->memDescr), objects);
}

// Streams at one speed, each cut two ways, the second run reading it as the
// right channel of an interleaved pair: discards and acceptance only move data
// and a channel is read and written at its own slots, so the frames are the
// same. W = 80 over 24000 frames gives 396 blocks
// at 1.5 and 791 at 0.75 whatever the signal; the searches depend on it (the
// noise here gives 393 and 785). n frames last about n / speed, less the 3.5 W held back. At speed 1
// nothing is searched and the input comes back within an ulp (the cross-fade of equal values). At
// 8000 Hz a pass needs 4 W ahead of p and the window keeps W / 2 behind it:
// 222 ms still streams, 223 ms stalls, from 250 ms not one block comes out.
TEST(SolafsTest, StreamsAtConstantSpeed)
{
    struct Run {
        int ms;
        float speed;
        int frames, seed, blocks, searches;
        bool stalls;
    };
    for (Run run : {Run{10, 1.5f, 24000, 1, 396, 393, false},
                    {10, 0.75f, 24000, 1, 791, 785, false},
                    {10, 1.0f, 12000, 1, -1, 0, false},
                    {222, 0.75f, 40000, 9, -1, -1, false},
                    {223, 0.75f, 40000, 9, -1, -1, true},
                    {250, 1.0f, 40000, 9, 0, 0, true}}) {
        const std::vector<float> in =
            UniformNoise(run.frames, unsigned(run.seed));
        const std::vector<float> other = UniformNoise(run.frames, 99);
        std::vector<float> stereo;
        for (size_t i = 0; i < in.size(); i++)
            stereo.insert(stereo.end(), {other[i], in[i]});
        Channel a(run.ms, 8000), b(run.ms, 8000, 2);
        Stretch r = Drive(a.s, in, 80, Constant(run.speed), 40);
        const std::string what =
            std::to_string(run.ms) + " ms at " + std::to_string(run.speed);
        EXPECT_EQ(r.out,
                  Drive(b.s, stereo, 997, Constant(run.speed), 1234, 2, 1).out)
            << what;
        EXPECT_EQ(r.stalled, run.stalls) << what;
        EXPECT_EQ(r.blocks > 0, run.ms < 250) << what;
        EXPECT_TRUE(run.blocks < 0 || r.blocks == run.blocks)
            << what << ": " << r.blocks;
        EXPECT_TRUE(run.searches < 0 || r.searches == run.searches)
            << what << ": " << r.searches;
        if (run.stalls)
            continue;
        const double w = a->frameLength, n = run.frames / run.speed;
        EXPECT_NEAR(r.out.size(), n, 4 * w / run.speed + w / 2) << what;
        EXPECT_NEAR(b->segments[0].segOutputEnd, n, run.frames / 997 + 1)
            << what;
        for (size_t f = 0; run.speed == 1.0f && f < r.out.size(); f++)
            ASSERT_LE(std::fabs(r.out[f] - in[f]),
                      std::nextafter(std::fabs(in[f]), INFINITY) -
                          std::fabs(in[f]))
                << what << f;
    }
}

// The first block needs more than 3.5 W accepted frames; the capacity is
// looked at only behind a pass, so one whole block comes whatever it says. A
// prediction inside 0 .. maxSkew, both ends included, is the skew itself.
TEST(SolafsTest, FirstBlockCapacityAndPrediction)
{
    const std::vector<float> in = UniformNoise(4000, 7);
    std::vector<float> out(400, kSentinel);
    Channel first(10, 8000);
    ASSERT_EQ(TOLV_SolafsInputData(first.s, 0, in.data(), 280, 1.0f), 280);
    EXPECT_EQ(TOLV_SolafsOutputData(first.s, 0, out.data(), 200), 0);
    ASSERT_EQ(TOLV_SolafsInputData(first.s, 0, in.data() + 280, 1, 1.0f), 1);
    EXPECT_EQ(TOLV_SolafsOutputData(first.s, 0, out.data(), 200), 40);
    for (auto k : Points{{-5, 40},
                         {0, 40},
                         {39, 40},
                         {40, 40},
                         {79, 40},
                         {80, 80},
                         {119, 80}}) {
        Channel c(10, 8000);
        TOLV_SolafsInputData(c.s, 0, in.data(), 4000, 1.0f);
        std::fill(out.begin(), out.end(), kSentinel);
        EXPECT_EQ(TOLV_SolafsOutputData(c.s, 0, out.data(), int(k.first)),
                  k.second)
            << k.first;
        EXPECT_EQ(out[size_t(k.second)], kSentinel);
    }
    for (int32_t skew : {0, 77, 160, 161, -1}) {
        Channel c(10, 8000);
        TOLV_SolafsInputData(c.s, 0, in.data(), 4000, 1.0f);
        c->skew = skew; // at speed 1 the prediction is the skew itself
        ASSERT_EQ(TOLV_SolafsOutputData(c.s, 0, out.data(), 40), 40);
        EXPECT_TRUE(skew >= 0 && skew <= 160 ? c->skew == skew
                                             : c->skew >= 0 && c->skew < 160);
    }
}

// Input frames 0 .. 8000 at 1, .. 20000 at 2, .. 26000 at 0.5, .. 34000 at
// 1.25, in calls of 500 frames (every call's output share is whole). A ramp
// makes every output sample name its own source position.
TEST(SolafsTest, SpeedSegmentsAndCursorTranslation)
{
    const int starts[] = {0, 8000, 20000, 26000, 34000},
              ends[] = {8000, 14000, 26000, 32400};
    const float speeds[] = {1.0f, 2.0f, 0.5f, 1.25f};
    auto speedAt = [&](int f) {
        return speeds[(f >= 8000) + (f >= 20000) + (f >= 26000)];
    };
    std::vector<float> ramp(34000);
    std::iota(ramp.begin(), ramp.end(), 0.0f);
    Channel c(10, 8000);
    EXPECT_EQ(TOLV_SolafsTranslateCursorPosition(c.s, 1234), 0);
    Stretch r = Drive(c.s, ramp, 500, speedAt, 40);
    EXPECT_EQ((std::vector<int32_t>{c->segmentCount, c->nextSegment,
                                    c->pendingSegments}),
              (std::vector<int32_t>{4, 4, 0}));
    for (int i = 0; i < 4; i++) {
        const _TOLV_SOLAFS_SEGMENT &seg = c->segments[i];
        EXPECT_TRUE(seg.segInputStart == starts[i] &&
                    seg.segInputEnd == starts[i + 1] &&
                    seg.segOutputEnd == ends[i] && seg.segSpeed == speeds[i])
            << "segment " << i;
    }
    // The analysis position moves on by the speed in force before the pass
    // times the hop, within two truncations, and a change is taken by the first
    // pass whose previous position has reached the segment's start (a count
    // without the pad).
    size_t seg = 1;
    for (size_t b = 1; b < r.positions.size(); b++) {
        ASSERT_NEAR(r.positions[b] - r.positions[b - 1], 40.0 * r.speeds[b - 1],
                    2.0)
            << b;
        bool due = seg < 4 && r.positions[b - 1] >= starts[seg];
        EXPECT_EQ(r.speeds[b], due ? speeds[seg] : r.speeds[b - 1])
            << "block " << b;
        seg += due;
    }
    EXPECT_EQ(seg, 4u);
    for (auto pt : Points{{0, 0},
                          {8001, 8002},
                          {14000, 20000},
                          {14001, 20000},
                          {14003, 20001},
                          {26004, 26005},
                          {32400, 34000},
                          {33200, 35000}})
        EXPECT_EQ(TOLV_SolafsTranslateCursorPosition(c.s, pt.first), pt.second)
            << pt.first;
    // Played and translated positions agree within the skew and the lag of a
    // change (three maximal skews); a wrong speed would drift by thousands.
    for (size_t f = 0; f < r.out.size(); f += 7) {
        int64_t source = TOLV_SolafsTranslateCursorPosition(c.s, int64_t(f));
        ASSERT_NEAR(r.out[f], double(source), 3.0 * c->maxSkew)
            << "output frame " << f;
        ASSERT_LE(TOLV_SolafsTranslateCursorPosition(c.s, int64_t(f) - 7),
                  source)
            << f;
    }
    EXPECT_GT(r.out.size(), 32000u);
}

// The output share is truncated call by call, so it depends on how the stream
// was cut; a cursor on a segment's end belongs to that segment. Until a frame
// is accepted every call sets the speed at once and records a segment;
// afterwards a call of 0 frames at a new speed queues one. Segment 0 has no
// predecessor: its base is 0.
TEST(SolafsTest, SegmentBookkeeping)
{
    const std::vector<float> in = UniformNoise(3000, 11);
    Channel c(10, 8000);
    for (float speed : {2.0f, 1.0f})
        EXPECT_EQ(TOLV_SolafsInputData(c.s, 0, in.data(), 0, speed), 0);
    TOLV_SolafsInputData(c.s, 0, in.data(), 10, 1.0f);
    for (int k = 1; k <= 3; k++)
        TOLV_SolafsInputData(c.s, 0, in.data() + 10 * k, 10, 1.5f);
    TOLV_SolafsInputData(c.s, 0, in.data() + 40, 20, 1.0f);
    EXPECT_EQ(TOLV_SolafsInputData(c.s, 0, in.data(), 0, 0.5f), 0);
    EXPECT_EQ((std::vector<int32_t>{c->segmentCount, c->nextSegment,
                                    c->pendingSegments}),
              (std::vector<int32_t>{6, 3, 3}));
    EXPECT_TRUE(c->speed == 1.0f && c->segments[0].segSpeed == 2.0f);
    EXPECT_EQ(c->segments[3].segInputEnd, 40);
    EXPECT_EQ(c->segments[3].segOutputEnd,
              28); // 10 + 3 calls of 10 / 1.5: not 30
    EXPECT_EQ(c->segments[4].segOutputEnd, 48);
    EXPECT_TRUE(c->segments[5].segInputStart == 60 &&
                c->segments[5].segOutputEnd == 48);
    for (auto pt : Points{{5, 5},
                          {10, 10},
                          {11, 11},
                          {28, 37},
                          {29, 41},
                          {48, 60},
                          {49, 60}})
        EXPECT_EQ(TOLV_SolafsTranslateCursorPosition(c.s, pt.first), pt.second)
            << pt.first;
    Channel one(10, 8000);
    TOLV_SolafsInputData(one.s, 0, in.data(), 3000, 1.5f);
    for (int64_t position : {1, 999, 2000, 4000})
        EXPECT_EQ(TOLV_SolafsTranslateCursorPosition(one.s, position),
                  position * 3 / 2);
}

// The table holds the first speed and 255 changes. Further changes are not
// taken: their frames go to the last segment, at its speed. Before the first
// frame a full table has its last entry rewritten.
TEST(SolafsTest, SegmentTableIsBounded)
{
    Channel c(10, 8000), fresh(10, 8000);
    const std::vector<float> in = UniformNoise(10, 14);
    for (int call = 0; call < 300; call++) {
        ASSERT_EQ(
            TOLV_SolafsInputData(c.s, 0, in.data(), 10, call % 2 ? 1.5f : 0.8f),
            10);
        TOLV_SolafsInputData(fresh.s, 0, in.data(), 0, 1.0f + call / 1000.0f);
    }
    const _TOLV_SOLAFS_SEGMENT &last = c->segments[SOLAFS_MAX_SEGMENTS - 1];
    EXPECT_TRUE(c->segmentCount == SOLAFS_MAX_SEGMENTS &&
                c->pendingSegments == 255);
    EXPECT_TRUE(last.segSpeed == 1.5f && last.segInputStart == 2550 &&
                last.segInputEnd == 3000);
    EXPECT_FALSE(
        Drive(c.s, std::vector<float>(200000), 1000, Constant(2.0f), 4000)
            .stalled);
    EXPECT_TRUE(c->nextSegment == SOLAFS_MAX_SEGMENTS &&
                c->pendingSegments == 0);
    EXPECT_TRUE(c->speed == 1.5f && last.segInputEnd == 203000);
    int64_t at = TOLV_SolafsTranslateCursorPosition(c.s, last.segOutputEnd);
    EXPECT_NEAR(
        TOLV_SolafsTranslateCursorPosition(c.s, last.segOutputEnd + 1000) - at,
        1500, 1);
    EXPECT_TRUE(fresh->segmentCount == SOLAFS_MAX_SEGMENTS &&
                fresh->nextSegment == SOLAFS_MAX_SEGMENTS);
    EXPECT_EQ(fresh->segments[SOLAFS_MAX_SEGMENTS - 1].segSpeed,
              1.0f + 299 / 1000.0f);
}

// The search written out plainly, one candidate after another in double,
// energy from 1.0, strictly greater wins; reads outside the window are silence.
int32_t ReferenceSearch(const _TOLV_SOLAFS *s, int32_t p)
{
    int32_t skew = 0;
    double best = 0.0;
    for (int c = 0; c < s->maxSkew / s->skewStep; c++) {
        double dot = 0.0, energy = 1.0;
        for (int i = 0; i < s->similarityLength / s->correlationStep; i++) {
            int64_t at = int64_t(s->similarityLength) + s->similarityIndex[i] +
                         c * s->skewStep + p - 1 - s->inputBase;
            double x =
                at >= 0 && at < s->inputCapacity ? s->inputBuffer[at] : 0.0;
            energy += x * x;
            dot += x * double(s->overlapBuffer[8 * i]);
        }
        if (dot / std::sqrt(energy) > best)
            best = dot / std::sqrt(energy), skew = c * s->skewStep;
    }
    return skew;
}

// Noise, a period of 16 frames (every fourth candidate ties: the smallest
// wins) and an opposed signal (no positive score: skew 0), with the analysis
// position inside, before and beyond the window.
TEST(SolafsTest, SearchMatchesTheCandidateByCandidateScores)
{
    Channel c(20, 44100);
    const std::vector<float> noise = UniformNoise(44100, 16);
    const std::function<float(int)> signals[][2] = {
        {[&](int j) { return noise[size_t(j)]; },
         [&](int j) { return noise[size_t(44099 - j)]; }},
        {[](int j) { return float(std::sin(2 * M_PI * j / 16.0 + 0.3)); },
         [](int j) { return float(std::sin(2 * M_PI * j / 16.0 + 1.1)); }},
        {[](int j) { return 1.0f + float(j % 3); }, [](int) { return -1.0f; }}};
    for (int k = 0; k < 3; k++) {
        for (int j = 0; j < c->inputCapacity; j++)
            c->inputBuffer[j] = signals[k][0](j);
        for (int j = 0; j < c->overlapLength; j++)
            c->overlapBuffer[j] = signals[k][1](j);
        for (int32_t base : {0, 1000})
            for (int32_t p : {0, 3, 20000, 44100 - 1500, -200, 44100 - 200}) {
                c->inputBase = base;
                int32_t expected = ReferenceSearch(c.s, base + p);
                EXPECT_EQ(_SolafsSearch(c.s, base + p), expected)
                    << k << " p " << p;
                EXPECT_TRUE(k != 1 || p < 0 || p > 40000 || expected < 16) << p;
                EXPECT_TRUE(k != 2 || expected == 0);
            }
    }
}

// The fade-in product is f32, the rest double: a mixture that pure f32 or pure
// double would round differently in places.
TEST(SolafsTest, CrossFadeRunsInMixedPrecision)
{
    Channel c(20, 44100, 3);
    const int len = c->overlapLength;
    const std::vector<float> a = UniformNoise(len, 17),
                             b = UniformNoise(len, 18);
    std::vector<float> out(size_t(3 * len), kSentinel);
    c->alignedPos = 5000;
    std::copy(a.begin(), a.end(), c->overlapBuffer);
    std::copy(b.begin(), b.end(), c->inputBuffer + 5000);
    _SolafsCrossFade(c.s, 1, out.data(), 0);
    int fromF32 = 0, fromDouble = 0;
    for (size_t j = 0; j < size_t(len); j++) {
        float w = c->crossFade[j], wb = w * b[j];
        float mixed = float(double(a[j]) * (1.0 - double(w)) + double(wb));
        ASSERT_EQ(out[1 + 3 * j], mixed) << j;
        ASSERT_EQ(c->overlapBuffer[j], mixed) << j;
        fromF32 += mixed != a[j] * (1.0f - w) + wb;
        fromDouble +=
            mixed != float(double(a[j]) * (1.0 - w) + double(w) * b[j]);
    }
    EXPECT_GT(fromF32, 0);
    EXPECT_GT(fromDouble, 0);
}

// Speeds beyond 3 read past inputEnd and beyond the window, zero and negative
// speeds behind it, NaN makes every position INT32_MIN, negative frame counts
// pull inputEnd back, no correlation point (W = 8), a pad longer than the
// window or an overflowing frame product skews the bookkeeping: every call
// stays inside the object's arrays (the sanitizer build checks) and the counts
// keep their rules. Frame lengths of 0 are left out: they loop by design.
TEST(SolafsTest, UncheckedArgumentsStayInsideTheObject)
{
    struct Abuse {
        int ms, rate;
        std::vector<float> speeds;
        int frames;
    };
    const Abuse cases[] = {{10, 8000, {3.5f, 10.0f, 1000.0f, 1e30f}, 3000},
                           {10, 8000, {-1.0f, -1000.0f, 1.0f}, -500},
                           {10, 8000, {NAN, 1.0f, INFINITY, -INFINITY}, -2000},
                           {10, 8000, {0.3f, 7.0f, 0.0f, NAN, 2.0f, -0.5f}, 0},
                           {1, 8000, {0.75f, 4.0f}, 3000},
                           {5000, 1000, {1.5f}, 3000},
                           {-10, -8000, {1.5f}, 3000},
                           {600000, 8000, {1.5f}, 3000}};
    const std::vector<float> in = UniformNoise(6000, 18);
    for (const Abuse &a : cases) {
        Channel c(a.ms, a.rate, 2);
        const int block = c->overlapLength, room = std::max(400, block);
        std::vector<float> out(size_t(2 * room), kSentinel);
        for (int round = 0; round < 60; round++) {
            int frames =
                std::min(round % 7 == 6 ? a.frames : 1000 + round, 3000);
            float speed = a.speeds[size_t(round) % a.speeds.size()];
            EXPECT_LE(TOLV_SolafsInputData(c.s, 1, in.data(), frames, speed),
                      frames);
            for (int k = 0; k < 3; k++) {
                int n = TOLV_SolafsOutputData(c.s, 1, out.data(),
                                              (round + k) % 3 ? 400 : -1);
                EXPECT_TRUE(n % block == 0 && n <= room)
                    << a.ms << " ms: " << n;
            }
            EXPECT_LE(c->segmentCount, SOLAFS_MAX_SEGMENTS);
            EXPECT_EQ(c->nextSegment + c->pendingSegments, c->segmentCount);
            for (int64_t position :
                 {int64_t(-5), int64_t(100000), INT64_MAX, INT64_MIN})
                TOLV_SolafsTranslateCursorPosition(c.s, position);
        }
        for (size_t f = 0; f < size_t(room); f++)
            ASSERT_EQ(out[2 * f], kSentinel)
                << a.ms << " ms, channel 0 slot of frame " << f;
    }
}

} // namespace
