/*
 * SOLAFS time-scale modification: the frame geometry, pass-through at speed 1,
 * block and search counts, durations, the call rhythm, speed segments and the
 * cursor translation, interleaved channels, the stall limits, the bounds of
 * the segment table, and sequences of unchecked arguments that must stay
 * inside the object's memory.
 */
#include "TOLVsolafs/solafs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace {

const float kSentinel = -1234.5f;

/* A channel for one test. The engine's destructor only reports, so the test
 * disposes of the descriptor itself. */
class Channel {
public:
    Channel(int frameMs, int sampleRate, int channels = 1)
        : s_(TOLV_SolafsCreate(frameMs, sampleRate, channels)) {}
    ~Channel() { KEELMEM_DisposeMemDescr(s_->memDescr); }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;
    _TOLV_SOLAFS *get() const { return s_; }
    _TOLV_SOLAFS *operator->() const { return s_; }

private:
    _TOLV_SOLAFS *s_;
};

std::vector<float> Noise(size_t n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<float> d(0.0f, 0.3f);
    std::vector<float> v(n);
    for (float &x : v)
        x = d(rng);
    return v;
}

std::vector<float> Tone(size_t n, double cyclesPerFrame)
{
    std::vector<float> v(n);
    for (size_t i = 0; i < n; i++)
        v[i] = (float)(0.5 * std::sin(2.0 * M_PI * cyclesPerFrame * (double)i));
    return v;
}

/* What a stream produced, with one record per block for single-block calls. */
struct Stretch {
    std::vector<float> out;
    int blocks = 0;
    int searches = 0;
    bool stalled = false;
    std::vector<int32_t> skews, positions;
    std::vector<float> speeds;
};

/* Watches one output call that produced exactly one block: the prediction is
 * skew + p - synthesisPos, and unless it falls outside 0 .. maxSkew the
 * search does not run and the skew is the prediction. */
void ObserveBlock(const _TOLV_SOLAFS *s, int32_t skewBefore, Stretch &r)
{
    int64_t predicted = (int64_t)skewBefore + s->lastAnalysisPos - s->synthesisPos;
    bool searched = predicted < 0 || predicted > s->maxSkew;
    if (searched) {
        EXPECT_EQ(s->skew % s->skewStep, 0);
        EXPECT_GE(s->skew, 0);
        EXPECT_LT(s->skew, s->maxSkew);
    } else {
        EXPECT_EQ(s->skew, predicted);
    }
    EXPECT_EQ(s->alignedPos, s->lastAnalysisPos + s->skew);
    r.searches += searched;
    r.skews.push_back(s->skew);
    r.positions.push_back(s->lastAnalysisPos);
    r.speeds.push_back(s->speed);
}

/* Offers `frames` interleaved frames in calls of `chunk` frames at the speed
 * for the first frame of the call; behind every input call takes output,
 * `capacity` frames at a time, until a call gives 0. Slots of the other
 * channels in the caller's output block must stay untouched. */
Stretch Drive(_TOLV_SOLAFS *s, const std::vector<float> &in, int channels,
          int channel, int chunk, const std::function<float(int)> &speedAt,
          int capacity)
{
    Stretch r;
    const int overlap = s->overlapLength;
    const int frames = (int)(in.size() / channels);
    std::vector<float> block((size_t)std::max(capacity, overlap) * channels);
    int next = 0;
    while (next < frames) {
        int offer = std::min(chunk, frames - next);
        int got = TOLV_SolafsInputData(s, channel, in.data() + (size_t)next * channels,
                                       offer, speedAt(next));
        EXPECT_GE(got, 0);
        EXPECT_LE(got, offer);
        next += got;
        int produced = 0;
        for (;;) {
            std::fill(block.begin(), block.end(), kSentinel);
            int32_t skewBefore = s->skew;
            int n = TOLV_SolafsOutputData(s, channel, block.data(), capacity);
            EXPECT_EQ(n % overlap, 0);
            if (n == 0)
                break;
            for (size_t k = 0; k < block.size(); k++) {
                if ((int)(k % channels) == channel && (int)(k / channels) < n)
                    r.out.push_back(block[k]);
                else
                    EXPECT_EQ(block[k], kSentinel) << "slot " << k;
            }
            if (n == overlap)
                ObserveBlock(s, skewBefore, r);
            r.blocks += n / overlap;
            produced += n;
        }
        if (got == 0 && produced == 0) {
            r.stalled = true;
            break;
        }
    }
    return r;
}

std::function<float(int)> Constant(float speed)
{
    return [speed](int) { return speed; };
}

/* Distance in units in the last place of the expected value. */
bool WithinOneUlp(float actual, float expected)
{
    float ulp = std::nextafter(std::fabs(expected), INFINITY) - std::fabs(expected);
    return std::fabs(actual - expected) <= ulp;
}

/* ---- Frame geometry -------------------------------------------------- */

struct Geometry {
    int frameMs, sampleRate, frameLength, points, candidates;
};

class SolafsGeometryTest : public ::testing::TestWithParam<Geometry> {};

TEST_P(SolafsGeometryTest, DerivesTheFrameFromMillisecondsAndRate)
{
    const Geometry &g = GetParam();
    Channel c(g.frameMs, g.sampleRate, 3);
    const int w = g.frameLength;
    EXPECT_STREQ(KEELMEM_GetName(c->memDescr), "Solafs channel");
    EXPECT_EQ(c->speed, 1.0f);
    EXPECT_EQ(c->frameLength, w);
    for (int32_t half : {c->similarityLength, c->overlapLength, c->synthesisHop,
                         c->inputEnd})
        EXPECT_EQ(half, w / 2);
    EXPECT_EQ(c->maxSkew, 2 * w);
    EXPECT_EQ(c->similarityLength / c->correlationStep, g.points);
    EXPECT_EQ(c->maxSkew / c->skewStep, g.candidates);
    EXPECT_EQ(c->inputCapacity, g.sampleRate);
    EXPECT_EQ(c->channelStride, 3);
    for (int32_t field : {c->lastAnalysisPos, c->lastSynthesisPos, c->skew,
                          c->synthesisPos, c->analysisOffset, c->alignedPos,
                          c->inputBase, c->nextSegment, c->segmentCount,
                          c->pendingSegments})
        EXPECT_EQ(field, 0);
    /* The fade-in climbs evenly from 1 / (L + 1) to L / (L + 1). */
    const int len = c->overlapLength;
    for (int i = 0; i < len; i++)
        EXPECT_NEAR(c->crossFade[i], (i + 1.0) / (len + 1.0), 6e-8);
    /* Every eighth point of the compared stretch, relative to its end. */
    for (int i = 0; i < g.points; i++)
        EXPECT_EQ(c->similarityIndex[i], 8 * i + 1 - c->similarityLength);
}

/* 20 ms at 44100 Hz: blocks of 440 frames, 55 correlation points, 440 skew
 * candidates, a window of 44100 floats. */
INSTANTIATE_TEST_SUITE_P(Frames, SolafsGeometryTest,
                         ::testing::Values(Geometry{10, 8000, 80, 5, 40},
                                           Geometry{20, 44100, 880, 55, 440},
                                           Geometry{7, 8000, 56, 3, 28},
                                           Geometry{3, 11025, 32, 2, 16},
                                           Geometry{1, 8000, 8, 0, 4},
                                           Geometry{1, 7999, 0, 0, 0}));

struct Messages {
    std::vector<std::string> texts;
    std::vector<int> levels;
};

void Capture(int level, int, const char *message, void *user)
{
    Messages *m = static_cast<Messages *>(user);
    m->texts.push_back(message);
    m->levels.push_back(level);
}

TEST(SolafsTest, DestroyOnlyReportsItsDescriptor)
{
    _TOLV_SOLAFS *s = TOLV_SolafsCreate(10, 8000, 1);
    KEEL_MEMDESCR mem = s->memDescr;
    int objects = KEELMEM_GetObjectCount(mem);
    int live = KEELMEM_LiveDescriptorCount();
    Messages m;
    KEELDEBUG_SetMessageHandler(Capture, &m);
    TOLV_SolafsDestroy(s);
    TOLV_SolafsDestroy(nullptr);
    KEELDEBUG_SetMessageHandler(nullptr, nullptr);
    ASSERT_EQ(m.texts.size(), 1u);
    EXPECT_EQ(m.levels[0], KEEL_LEVEL_LOG);
    EXPECT_NE(m.texts[0].find("Solafs channel"), std::string::npos) << m.texts[0];
    EXPECT_EQ(KEELMEM_LiveDescriptorCount(), live);
    EXPECT_EQ(KEELMEM_GetObjectCount(mem), objects);
    KEELMEM_DisposeMemDescr(mem);
}

/* ---- Streams at constant speed --------------------------------------- */

struct Rhythm {
    int chunk, capacity;
};

class SolafsPassThroughTest : public ::testing::TestWithParam<Rhythm> {};

TEST_P(SolafsPassThroughTest, SpeedOneReproducesTheInput)
{
    Channel c(10, 8000);
    std::vector<float> in = Noise(12000, 1);
    Stretch r = Drive(c.get(), in, 1, 0, GetParam().chunk, Constant(1.0f),
                  GetParam().capacity);
    EXPECT_EQ(r.searches, 0);
    for (int32_t skew : r.skews)
        EXPECT_EQ(skew, 0);
    /* Everything but the last 3.5 W frames, which wait ahead of p. */
    EXPECT_EQ(r.out.size(), (size_t)r.blocks * 40);
    EXPECT_GE(r.out.size(), in.size() - 280);
    int differing = 0;
    for (size_t f = 0; f < r.out.size(); f++) {
        ASSERT_TRUE(WithinOneUlp(r.out[f], in[f]))
            << "frame " << f << ": " << r.out[f] << " vs " << in[f];
        differing += r.out[f] != in[f];
    }
    EXPECT_LT(differing, (int)r.out.size() / 10);
}

INSTANTIATE_TEST_SUITE_P(Rhythms, SolafsPassThroughTest,
                         ::testing::Values(Rhythm{80, 40}, Rhythm{1000, 4096},
                                           Rhythm{333, 1}, Rhythm{7, 0},
                                           Rhythm{12000, 100}));

/* 10 ms frames at 8000 Hz (W = 80) over 24000 frames. The block totals follow
 * from the analysis positions alone, whatever the signal and the sizes of the
 * calls. The number of searches depends on the signal: the first noise gives
 * the quoted 393 of 396 and 785 of 791, other noises come close. */
struct Figure {
    float speed;
    int blocks, quotedSearches, fewestSearches, mostSearches;
};

class SolafsFigureTest : public ::testing::TestWithParam<Figure> {};

TEST_P(SolafsFigureTest, BlocksAndSearchesOverTwentyFourThousandFrames)
{
    const Figure &fig = GetParam();
    const std::vector<std::vector<float>> signals = {
        Noise(24000, 1), Noise(24000, 2), Noise(24000, 4), Tone(24000, 0.013),
        std::vector<float>(24000, 0.0f)};
    const size_t noises = 3, silence = 4;
    for (size_t k = 0; k < signals.size(); k++) {
        for (int chunk : {80, 1000}) {
            Channel c(10, 8000);
            ASSERT_EQ(c->frameLength, 80);
            Stretch r = Drive(c.get(), signals[k], 1, 0, chunk, Constant(fig.speed), 40);
            EXPECT_EQ(r.blocks, fig.blocks) << "signal " << k << " chunk " << chunk;
            if (k == 0) {
                EXPECT_EQ(r.searches, fig.quotedSearches);
            }
            if (k < noises) {
                EXPECT_GE(r.searches, fig.fewestSearches) << "noise " << k;
                EXPECT_LE(r.searches, fig.mostSearches) << "noise " << k;
            }
            if (k == silence) {
                /* Silence scores 0 everywhere: a search settles on skew 0. */
                for (float v : r.out)
                    ASSERT_EQ(v, 0.0f);
                for (size_t b = 0; b < r.skews.size(); b++) {
                    int32_t before = b ? r.skews[b - 1] : 0;
                    int64_t predicted = (int64_t)before + r.positions[b] - 40 * (b + 1);
                    if (predicted < 0 || predicted > 160) {
                        EXPECT_EQ(r.skews[b], 0) << "block " << b;
                    }
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Speeds, SolafsFigureTest,
                         ::testing::Values(Figure{1.5f, 396, 393, 391, 393},
                                           Figure{0.75f, 791, 785, 782, 791}));

class SolafsDurationTest : public ::testing::TestWithParam<float> {};

TEST_P(SolafsDurationTest, OutputLastsInputOverSpeed)
{
    const float speed = GetParam();
    const int frames = 80000, w = 80;
    Channel c(10, 8000);
    std::vector<float> in = Noise(frames, 4);
    std::vector<float> tone = Tone(frames, 0.011);
    for (int i = 0; i < frames; i++)
        in[i] += tone[i];
    Stretch r = Drive(c.get(), in, 1, 0, 1000, Constant(speed), 1000);
    /* The last 3.5 W input frames wait ahead of the analysis position. */
    double expected = frames / speed;
    EXPECT_NEAR((double)r.out.size(), expected, 4.0 * w / speed + w / 2)
        << "speed " << speed;
    EXPECT_EQ(c->segmentCount, 1);
    EXPECT_EQ(c->segments[0].segInputEnd, frames);
    EXPECT_NEAR(c->segments[0].segOutputEnd, expected, frames / 1000);
}

INSTANTIATE_TEST_SUITE_P(Speeds, SolafsDurationTest,
                         ::testing::Values(0.5f, 0.75f, 1.25f, 1.5f, 2.0f));

/* At constant speed the output is the same whatever the sizes of the calls:
 * discards and acceptance only move data, never change it. */
TEST(SolafsTest, OutputDoesNotDependOnTheCallRhythm)
{
    std::vector<float> in = Noise(30000, 5);
    for (float speed : {0.75f, 1.5f, 2.5f}) {
        Channel a(10, 8000), b(10, 8000);
        Stretch ra = Drive(a.get(), in, 1, 0, 80, Constant(speed), 40);
        Stretch rb = Drive(b.get(), in, 1, 0, 997, Constant(speed), 1234);
        ASSERT_EQ(ra.out.size(), rb.out.size()) << speed;
        EXPECT_EQ(ra.out, rb.out) << speed;
        EXPECT_GT(ra.searches, 0);
    }
}

TEST(SolafsTest, FirstBlockNeedsMoreThanThreeAndAHalfFrames)
{
    Channel c(10, 8000);
    std::vector<float> in = Noise(400, 6), out(200, kSentinel);
    ASSERT_EQ(TOLV_SolafsInputData(c.get(), 0, in.data(), 280, 1.0f), 280);
    EXPECT_EQ(TOLV_SolafsOutputData(c.get(), 0, out.data(), 200), 0);
    EXPECT_EQ(c->synthesisPos, 0);
    EXPECT_EQ(out[0], kSentinel);
    ASSERT_EQ(TOLV_SolafsInputData(c.get(), 0, in.data() + 280, 1, 1.0f), 1);
    EXPECT_EQ(TOLV_SolafsOutputData(c.get(), 0, out.data(), 200), 40);
}

/* The capacity is looked at only behind a pass. */
TEST(SolafsTest, OutputComesInWholeBlocksWhateverTheCapacity)
{
    const struct {
        int capacity, frames;
    } cases[] = {{-5, 40}, {0, 40},  {1, 40},   {39, 40},
                 {40, 40}, {79, 40}, {80, 80}, {119, 80}, {200, 200}};
    std::vector<float> in = Noise(4000, 7);
    for (const auto &k : cases) {
        Channel c(10, 8000);
        ASSERT_EQ(TOLV_SolafsInputData(c.get(), 0, in.data(), 4000, 1.0f), 4000);
        std::vector<float> out(400, kSentinel);
        EXPECT_EQ(TOLV_SolafsOutputData(c.get(), 0, out.data(), k.capacity), k.frames)
            << "capacity " << k.capacity;
        EXPECT_EQ(out[k.frames], kSentinel);
    }
}

/* W = 8 leaves similarityLength / 8 = 0 points: every score is 0. */
TEST(SolafsTest, NoCorrelationPointsGiveSkewZero)
{
    Channel c(1, 8000);
    ASSERT_EQ(c->frameLength, 8);
    Stretch r = Drive(c.get(), Noise(4000, 8), 1, 0, 100, Constant(0.75f), 4);
    ASSERT_GT(r.blocks, 900);
    EXPECT_EQ(r.searches, r.blocks);
    for (int32_t skew : r.skews)
        ASSERT_EQ(skew, 0);
}

/* ---- Stall limits ----------------------------------------------------- */

struct Stall {
    int frameMs;
    bool stalls, anyBlock;
};

class SolafsStallTest : public ::testing::TestWithParam<Stall> {};

/* At 8000 Hz: a pass needs 4 W ahead of p and the window keeps W / 2 behind
 * it, so W >= 8000 / 4.5 (223 ms) stalls, and W >= 2000 (250 ms) never gives
 * a first block. */
TEST_P(SolafsStallTest, LongFramesStallTheStream)
{
    const Stall &st = GetParam();
    for (float speed : {1.0f, 0.75f}) {
        Channel c(st.frameMs, 8000);
        Stretch r = Drive(c.get(), Noise(40000, 9), 1, 0, 1000, Constant(speed), 4000);
        EXPECT_EQ(r.stalled, st.stalls) << st.frameMs << " ms, speed " << speed;
        EXPECT_EQ(r.blocks > 0, st.anyBlock) << st.frameMs << " ms";
        if (!st.stalls) {
            EXPECT_NEAR((double)r.out.size(), 40000 / speed,
                        4.0 * c->frameLength / speed + c->overlapLength);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Limits, SolafsStallTest,
                         ::testing::Values(Stall{222, false, true},
                                           Stall{223, true, true},
                                           Stall{249, true, true},
                                           Stall{250, true, false}));

/* ---- Speed segments and the cursor ------------------------------------- */

struct Segment {
    int start;
    float speed;
};

/* Input frames 0 .. 8000 at 1, .. 20000 at 2, .. 26000 at 0.5, .. 34000 at
 * 1.25, in calls of 500 frames: every call's output share is whole. */
const Segment kProgram[] = {{0, 1.0f}, {8000, 2.0f}, {20000, 0.5f}, {26000, 1.25f}};
const int kProgramEnd = 34000;
const int kOutputEnds[] = {8000, 14000, 26000, 32400};

float ProgramSpeed(int frame)
{
    float speed = kProgram[0].speed;
    for (const Segment &seg : kProgram)
        if (frame >= seg.start)
            speed = seg.speed;
    return speed;
}

TEST(SolafsSegmentsTest, SpeedChangesAreBookedAndTakenInOrder)
{
    Channel c(10, 8000);
    Stretch r = Drive(c.get(), Noise(kProgramEnd, 10), 1, 0, 500, ProgramSpeed, 40);
    ASSERT_EQ(c->segmentCount, 4);
    EXPECT_EQ(c->nextSegment, 4);
    EXPECT_EQ(c->pendingSegments, 0);
    EXPECT_EQ(c->speed, 1.25f);
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(c->segments[i].segInputStart, kProgram[i].start) << i;
        EXPECT_EQ(c->segments[i].segInputEnd, i < 3 ? kProgram[i + 1].start : kProgramEnd);
        EXPECT_EQ(c->segments[i].segOutputEnd, kOutputEnds[i]) << i;
        EXPECT_EQ(c->segments[i].segSpeed, kProgram[i].speed) << i;
    }
    /* The analysis position stays continuous: it advances by the speed in
     * force before the pass times the hop, within two truncations, also in
     * the pass that takes a change. */
    for (size_t b = 1; b < r.positions.size(); b++)
        ASSERT_NEAR(r.positions[b] - r.positions[b - 1], 40.0 * r.speeds[b - 1], 2.0)
            << "block " << b;
    /* A change is taken by the first pass whose previous analysis position has
     * reached the segment's start (a count without the pad). */
    size_t seg = 1;
    for (size_t b = 1; b < r.speeds.size() && seg < 4; b++) {
        if (r.positions[b - 1] >= kProgram[seg].start) {
            EXPECT_EQ(r.speeds[b], kProgram[seg].speed) << "block " << b;
            EXPECT_NE(r.speeds[b - 1], kProgram[seg].speed) << "block " << b;
            seg++;
        } else {
            EXPECT_EQ(r.speeds[b], r.speeds[b - 1]) << "block " << b;
        }
    }
    EXPECT_EQ(seg, 4u);
}

TEST(SolafsSegmentsTest, CursorTranslatesBackAcrossSegments)
{
    Channel c(10, 8000);
    EXPECT_EQ(TOLV_SolafsTranslateCursorPosition(c.get(), 1234), 0);
    /* A ramp makes every output sample name its own source position. */
    std::vector<float> ramp(kProgramEnd);
    for (int i = 0; i < kProgramEnd; i++)
        ramp[i] = (float)i;
    Stretch r = Drive(c.get(), ramp, 1, 0, 500, ProgramSpeed, 400);

    const struct {
        int64_t position, source;
    } points[] = {{0, 0},         {4000, 4000},   {8000, 8000},   {8001, 8002},
                  {11000, 14000}, {14000, 20000}, {14001, 20000}, {14003, 20001},
                  {20000, 23000}, {26000, 26000}, {26001, 26001}, {26004, 26005},
                  {32400, 34000}, {33200, 35000}};
    for (const auto &pt : points)
        EXPECT_EQ(TOLV_SolafsTranslateCursorPosition(c.get(), pt.position), pt.source)
            << "output " << pt.position;

    /* The stretched ramp reads back through the cursor; the translation never
     * runs backwards. What is played leads the bookkeeping by the skew (which
     * a ramp drives to its top, the extra energy scoring higher) and by the
     * analysis position's own lead: a change is noticed a pass late, and the
     * lead grows with the ratio of the speeds. Both stay within three maximal
     * skews, where a wrong speed would drift by thousands of frames. */
    int64_t previous = 0;
    const double slack = 3.0 * c->maxSkew;
    for (size_t f = 0; f < r.out.size(); f += 7) {
        int64_t source = TOLV_SolafsTranslateCursorPosition(c.get(), (int64_t)f);
        ASSERT_GE(source, previous) << f;
        ASSERT_NEAR(r.out[f], (double)source, slack) << "output frame " << f;
        previous = source;
    }
    EXPECT_GT(r.out.size(), 32000u);
}

/* The output share of a call is truncated call by call, so a segment's end
 * in output frames need not meet the next segment's start exactly: a cursor
 * on the end still belongs to the segment that ends there. */
TEST(SolafsSegmentsTest, OutputEndIsCutAtEveryCall)
{
    std::vector<float> in = Noise(60, 11);
    Channel whole(10, 8000), pieces(10, 8000);
    TOLV_SolafsInputData(whole.get(), 0, in.data(), 30, 3.0f);
    EXPECT_EQ(whole->segments[0].segOutputEnd, 10);

    TOLV_SolafsInputData(pieces.get(), 0, in.data(), 10, 1.0f);
    for (int k = 1; k <= 3; k++)
        TOLV_SolafsInputData(pieces.get(), 0, in.data() + 10 * k, 10, 3.0f);
    TOLV_SolafsInputData(pieces.get(), 0, in.data() + 40, 20, 1.0f);
    ASSERT_EQ(pieces->segmentCount, 3);
    EXPECT_EQ(pieces->segments[1].segInputEnd, 40);
    EXPECT_EQ(pieces->segments[1].segOutputEnd, 19);
    EXPECT_EQ(pieces->segments[2].segOutputEnd, 39);
    const struct {
        int64_t position, source;
    } points[] = {{10, 10}, {11, 13}, {19, 37}, {20, 41}, {39, 60}};
    for (const auto &pt : points)
        EXPECT_EQ(TOLV_SolafsTranslateCursorPosition(pieces.get(), pt.position),
                  pt.source) << "output " << pt.position;
}

/* A prediction inside 0 .. maxSkew, both ends included, is taken as the skew;
 * outside it the search decides, and it never returns maxSkew itself. */
TEST(SolafsTest, PredictionBoundsIncludeBothEnds)
{
    const struct {
        int32_t skew;
        bool searched;
    } cases[] = {{0, false}, {77, false}, {160, false}, {161, true}, {-1, true}};
    std::vector<float> in = Noise(4000, 20), out(40);
    for (const auto &k : cases) {
        Channel c(10, 8000);
        ASSERT_EQ(TOLV_SolafsInputData(c.get(), 0, in.data(), 4000, 1.0f), 4000);
        c->skew = k.skew; /* at speed 1 the prediction is the skew itself */
        ASSERT_EQ(TOLV_SolafsOutputData(c.get(), 0, out.data(), 40), 40);
        if (k.searched) {
            EXPECT_GE(c->skew, 0) << k.skew;
            EXPECT_LT(c->skew, c->maxSkew) << k.skew;
        } else {
            EXPECT_EQ(c->skew, k.skew);
        }
        EXPECT_EQ(c->alignedPos, c->lastAnalysisPos + c->skew);
    }
}

/* Until a frame is accepted every call sets the speed at once and records a
 * segment of its own; afterwards a call of 0 frames at a new speed queues one. */
TEST(SolafsSegmentsTest, CallsBeforeTheFirstFrame)
{
    Channel c(10, 8000);
    float none = 0.0f;
    for (float speed : {1.0f, 2.0f, 3.0f})
        EXPECT_EQ(TOLV_SolafsInputData(c.get(), 0, &none, 0, speed), 0);
    EXPECT_EQ(c->segmentCount, 3);
    EXPECT_EQ(c->nextSegment, 3);
    EXPECT_EQ(c->pendingSegments, 0);
    EXPECT_EQ(c->speed, 3.0f);
    EXPECT_EQ(c->segments[1].segSpeed, 2.0f);

    /* The call that brings the first frames still counts as a first call. */
    std::vector<float> in = Noise(100, 12);
    EXPECT_EQ(TOLV_SolafsInputData(c.get(), 0, in.data(), 100, 3.0f), 100);
    EXPECT_EQ(c->segmentCount, 4);
    EXPECT_EQ(c->nextSegment, 4);
    EXPECT_EQ(c->segments[3].segInputEnd, 100);
    EXPECT_EQ(c->segments[3].segOutputEnd, 33);
    EXPECT_EQ(TOLV_SolafsInputData(c.get(), 0, in.data(), 0, 0.5f), 0);
    EXPECT_EQ(c->segmentCount, 5);
    EXPECT_EQ(c->nextSegment, 4);
    EXPECT_EQ(c->pendingSegments, 1);
    EXPECT_EQ(c->speed, 3.0f);
    EXPECT_EQ(c->segments[4].segInputStart, 100);
    EXPECT_EQ(c->segments[4].segOutputEnd, 33);
    EXPECT_EQ(c->segments[4].segSpeed, 0.5f);
}

/* Segment 0 has no predecessor: its base is 0, and a cursor past the last
 * segment goes on at that segment's speed. */
TEST(SolafsSegmentsTest, CursorInTheFirstSegmentScalesBySpeed)
{
    Channel c(10, 8000);
    std::vector<float> in = Noise(3000, 13);
    TOLV_SolafsInputData(c.get(), 0, in.data(), 3000, 1.5f);
    ASSERT_EQ(c->segments[0].segOutputEnd, 2000);
    for (int64_t position : {0, 1, 999, 2000, 4000})
        EXPECT_EQ(TOLV_SolafsTranslateCursorPosition(c.get(), position),
                  (int64_t)(position * 1.5)) << position;
}

/* The table holds the first speed and 255 changes. Further changes are not
 * taken: their frames go to the last segment, at its speed. */
TEST(SolafsSegmentsTest, SegmentTableIsBounded)
{
    Channel c(10, 8000);
    std::vector<float> in = Noise(10, 14);
    auto speedOf = [](int call) { return call % 2 ? 1.5f : 0.8f; };
    for (int call = 0; call < 300; call++)
        ASSERT_EQ(TOLV_SolafsInputData(c.get(), 0, in.data(), 10, speedOf(call)), 10);
    EXPECT_EQ(c->segmentCount, SOLAFS_MAX_SEGMENTS);
    EXPECT_EQ(c->nextSegment, 1);
    EXPECT_EQ(c->pendingSegments, SOLAFS_MAX_SEGMENTS - 1);
    const _TOLV_SOLAFS_SEGMENT &last = c->segments[SOLAFS_MAX_SEGMENTS - 1];
    EXPECT_EQ(last.segSpeed, speedOf(255));
    EXPECT_EQ(last.segInputStart, 2550);
    EXPECT_EQ(last.segInputEnd, 3000);

    /* Drain: every recorded change is taken, the refused ones never are. */
    std::vector<float> quiet(200000, 0.0f);
    Stretch r = Drive(c.get(), quiet, 1, 0, 1000, Constant(2.0f), 4000);
    EXPECT_FALSE(r.stalled);
    EXPECT_EQ(c->segmentCount, SOLAFS_MAX_SEGMENTS);
    EXPECT_EQ(c->nextSegment, SOLAFS_MAX_SEGMENTS);
    EXPECT_EQ(c->pendingSegments, 0);
    EXPECT_EQ(c->speed, speedOf(255));
    EXPECT_EQ(last.segInputEnd, 203000);
    int64_t end = last.segOutputEnd;
    int64_t at = TOLV_SolafsTranslateCursorPosition(c.get(), end);
    EXPECT_NEAR(TOLV_SolafsTranslateCursorPosition(c.get(), end + 1000) - at,
                1000 * speedOf(255), 1.0);

    /* Before the first frame a full table has its last entry rewritten. */
    Channel fresh(10, 8000);
    float none = 0.0f;
    for (int call = 0; call < 300; call++)
        TOLV_SolafsInputData(fresh.get(), 0, &none, 0, 1.0f + call / 1000.0f);
    EXPECT_EQ(fresh->segmentCount, SOLAFS_MAX_SEGMENTS);
    EXPECT_EQ(fresh->nextSegment, SOLAFS_MAX_SEGMENTS);
    EXPECT_EQ(fresh->speed, 1.0f + 299 / 1000.0f);
    EXPECT_EQ(fresh->segments[SOLAFS_MAX_SEGMENTS - 1].segSpeed, fresh->speed);
}

/* ---- Interleaved channels ----------------------------------------------- */

/* Each channel of a stereo stream through its own object gives what that
 * channel gives alone (Drive also checks that the other channel's slots of
 * the output block stay untouched), and searches its own alignment. */
TEST(SolafsTest, TwoChannelsOfAnInterleavedStream)
{
    const int frames = 20000;
    std::vector<float> left = Noise(frames, 15), right = Tone(frames, 0.017);
    std::vector<float> stereo(2 * frames);
    for (int i = 0; i < frames; i++) {
        stereo[2 * i] = left[i];
        stereo[2 * i + 1] = right[i];
    }
    Channel l(10, 8000, 2), r(10, 8000, 2), monoL(10, 8000), monoR(10, 8000);
    Stretch sl = Drive(l.get(), stereo, 2, 0, 700, Constant(1.5f), 40);
    Stretch sr = Drive(r.get(), stereo, 2, 1, 700, Constant(1.5f), 40);
    EXPECT_EQ(sl.out, Drive(monoL.get(), left, 1, 0, 700, Constant(1.5f), 40).out);
    EXPECT_EQ(sr.out, Drive(monoR.get(), right, 1, 0, 700, Constant(1.5f), 40).out);
    EXPECT_GT(sl.out.size(), 13000u);
    EXPECT_NE(sl.skews, sr.skews);
}

/* ---- The search and the cross-fade --------------------------------------- */

/* The similarity search written out plainly, one candidate after another;
 * reads outside the window are silence. */
int32_t ReferenceSearch(const _TOLV_SOLAFS *s, int32_t p)
{
    int n = s->similarityLength / s->correlationStep;
    int32_t skew = 0;
    double best = 0.0;
    for (int c = 0; c < s->maxSkew / s->skewStep; c++) {
        double dot = 0.0, energy = 1.0;
        for (int i = 0; i < n; i++) {
            int64_t at = (int64_t)s->similarityLength + s->similarityIndex[i] +
                         c * s->skewStep + p - 1 - s->inputBase;
            double x = at >= 0 && at < s->inputCapacity ? s->inputBuffer[at] : 0.0;
            double y = s->overlapBuffer[8 * i];
            energy += x * x;
            dot += x * y;
        }
        double score = dot / std::sqrt(energy);
        if (score > best) {
            best = score;
            skew = c * s->skewStep;
        }
    }
    return skew;
}

TEST(SolafsSearchTest, MatchesTheCandidateByCandidateScores)
{
    Channel c(20, 44100);
    std::mt19937 rng(16);
    std::normal_distribution<float> d(0.0f, 1.0f);
    const int cap = c->inputCapacity, len = c->overlapLength;
    struct {
        const char *name;
        std::function<float(int)> input, outgoing;
    } signals[] = {
        {"noise", [&](int) { return d(rng); }, [&](int) { return d(rng); }},
        /* Period of 16 frames: every fourth candidate scores the same. */
        {"periodic", [](int j) { return (float)std::sin(2 * M_PI * j / 16.0 + 0.3); },
         [](int j) { return (float)std::sin(2 * M_PI * j / 16.0 + 1.1); }},
        {"opposed", [](int j) { return 1.0f + (j % 3); }, [](int) { return -1.0f; }},
    };
    for (auto &sig : signals) {
        for (int j = 0; j < cap; j++)
            c->inputBuffer[j] = sig.input(j);
        for (int j = 0; j < len; j++)
            c->overlapBuffer[j] = sig.outgoing(j);
        for (int32_t base : {0, 1000}) {
            c->inputBase = base;
            for (int32_t p : {base + 0, base + 3, base + 20000, base + cap - 1500,
                              base - 200, base + cap - 200}) {
                int32_t expected = ReferenceSearch(c.get(), p);
                EXPECT_EQ(_SolafsSearch(c.get(), p), expected)
                    << sig.name << " p " << p << " base " << base;
                bool inWindow = p - base >= 0 && p - base + 2 * 880 < cap;
                if (std::string(sig.name) == "periodic" && inWindow) {
                    EXPECT_LT(expected, 16);
                }
                if (std::string(sig.name) == "opposed") {
                    EXPECT_EQ(expected, 0);
                }
            }
        }
    }
}

/* The fade-in product is f32, the rest double: a mixture that pure f32 or
 * pure double would round differently in places. */
TEST(SolafsSearchTest, CrossFadeRunsInMixedPrecision)
{
    Channel c(20, 44100);
    std::mt19937 rng(17);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    const int len = c->overlapLength;
    std::vector<float> a(len), b(len), out(2 * len, kSentinel);
    int fromF32 = 0, fromDouble = 0;
    for (int round = 0; round < 20; round++) {
        c->inputBase = 100 * round;
        c->alignedPos = 5000 + round;
        int64_t from = (int64_t)c->alignedPos - c->inputBase;
        for (int j = 0; j < len; j++) {
            a[j] = c->overlapBuffer[j] = d(rng);
            b[j] = c->inputBuffer[from + j] = d(rng);
        }
        _TOLV_SOLAFS *s = c.get();
        _SolafsCrossFade(s, 1, out.data(), 0);
        for (int j = 0; j < len; j++) {
            float w = c->crossFade[j];
            float wb = w * b[j];
            float mixed = (float)((double)a[j] * (1.0 - (double)w) + (double)wb);
            ASSERT_EQ(out[1 + j * s->channelStride], mixed) << j;
            ASSERT_EQ(c->overlapBuffer[j], mixed) << j;
            fromF32 += mixed != a[j] * (1.0f - w) + wb;
            fromDouble += mixed != (float)((double)a[j] * (1.0 - w) + (double)w * b[j]);
        }
    }
    EXPECT_GT(fromF32, 0);
    EXPECT_GT(fromDouble, 0);
}

/* ---- Unchecked arguments --------------------------------------------------- */

struct Abuse {
    const char *name;
    int frameMs, sampleRate;
    std::vector<float> speeds;
    int frames;
};

class SolafsAbuseTest : public ::testing::TestWithParam<Abuse> {};

/* Speeds far beyond 3 read past inputEnd and beyond the window, zero and
 * negative speeds read behind it, NaN makes every position INT32_MIN,
 * negative frame counts pull inputEnd back, a pad longer than the window or
 * a frame product that overflows skews the bookkeeping: every call must stay
 * inside the object's arrays (the sanitizer build checks), and the counts
 * keep their rules. */
TEST_P(SolafsAbuseTest, UncheckedArgumentsStayInsideTheObject)
{
    const Abuse &a = GetParam();
    Channel c(a.frameMs, a.sampleRate, 2);
    const int block = c->overlapLength, room = std::max(400, block);
    std::vector<float> in = Noise(2 * 3000, 18), out(2 * room, kSentinel);
    for (int round = 0; round < 60; round++) {
        float speed = a.speeds[round % a.speeds.size()];
        int frames = std::min(round % 7 == 6 ? a.frames : 1000 + round, 3000);
        EXPECT_LE(TOLV_SolafsInputData(c.get(), 1, in.data(), frames, speed), frames);
        for (int k = 0; k < 3; k++) {
            int capacity = (round + k) % 3 ? 400 : -1;
            int n = TOLV_SolafsOutputData(c.get(), 1, out.data(), capacity);
            EXPECT_EQ(n % block, 0);
            EXPECT_LE(n, room);
        }
        EXPECT_LE(c->segmentCount, SOLAFS_MAX_SEGMENTS);
        EXPECT_EQ(c->nextSegment + c->pendingSegments, c->segmentCount);
        for (int64_t position : {(int64_t)-5, (int64_t)0, (int64_t)100000,
                                 INT64_MAX, INT64_MIN})
            TOLV_SolafsTranslateCursorPosition(c.get(), position);
    }
    for (int f = 0; f < room; f++)
        ASSERT_EQ(out[2 * f], kSentinel) << "channel 0 slot of frame " << f;
}

/* Frame lengths of 0 or below are left out: blocks of no length, and an
 * output call would not return. */
INSTANTIATE_TEST_SUITE_P(
    Sequences, SolafsAbuseTest,
    ::testing::Values(Abuse{"fast", 10, 8000, {3.5f, 10.0f}, 3000},
                      Abuse{"huge", 10, 8000, {1000.0f, 1e30f}, 3000},
                      Abuse{"zero", 10, 8000, {0.0f}, 3000},
                      Abuse{"negative", 10, 8000, {-1.0f, -1000.0f, 1.0f}, -500},
                      Abuse{"nan", 10, 8000, {NAN, 1.0f, INFINITY, -INFINITY}, -2000},
                      Abuse{"mixed", 10, 8000, {0.3f, 7.0f, 0.0f, NAN, 2.0f, -0.5f}, 0},
                      Abuse{"noPoints", 1, 8000, {0.75f, 4.0f}, 3000},
                      Abuse{"padBeyondWindow", 5000, 1000, {1.5f}, 3000},
                      Abuse{"negativeRate", -10, -8000, {1.5f}, 3000},
                      Abuse{"overflowingProduct", 600000, 8000, {1.5f}, 3000}),
    [](const ::testing::TestParamInfo<Abuse> &info) {
        return std::string(info.param.name);
    });

} // namespace
