// Filter run-time and memories: both forms to the last bit against
// hand-worked outputs and a section-by-section evaluation, streams cut into
// blocks, the frame walk (channels, strides, shared buffers), reset, updates,
// the copies between rings of unequal size, refusals and messages.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "filter_test_util.h"

namespace {

const float e30 = std::ldexp(1.0f, -30);
const double e60 = std::ldexp(1.0, -60);

TEST(FilterRun, HandWorkedOutputsToTheBit)
{
    const struct {
        const char *name;
        bool sections; // b holds biquad records, a is unused
        std::vector<double> b, a;
        std::vector<float> x, y;
    } cases[] = {
        {"pure gain", false, {3}, {2}, {1, -2, 0.5f}, {1.5f, -3, 0.75f}},
        {"a0 scales b0 too",
         false,
         {2, 4},
         {2, -1},
         {1, 0, 0, 0},
         {1, 2.5f, 1.25f, 0.625f}},
        {"quotients in f64", false, {0.1}, {0.3}, {1}, {0.333333343f}},
        {"b longer",
         false,
         {1, 0, 0, 1},
         {1, -0.5},
         {1, 0, 0, 0, 0},
         {1, 0.5f, 0.25f, 1.125f, 0.5625f}},
        {"a longer",
         false,
         {1},
         {1, 0, -0.5},
         {1, 0, 0, 0, 0},
         {1, 0, 0.5f, 0, 0.25f}},
        // f32 sums with the w[n] term last: -1 + 2^-30 rounds away first.
        {"w[n] term last", false, {1, -1, e30}, {1}, {1, 1, 1}, {1, 0, 0}},
        {"feedback in tap order",
         false,
         {1},
         {1, -1, e30},
         {1, 0, -1},
         {1, 1, -e30}},
        {"feedback sums in f32",
         false,
         {1},
         {1, e30, -1},
         {1, 1, -1},
         {1, 1, 0}},
        {"one section",
         true,
         {-1, 0.5, 1, 2, 1},
         {},
         {1, 0, 0, 0, 0},
         {1, 3, 3.5f, 2, 0.25f}},
        {"no sections copies", true, {}, {}, {0.25f, -3, 7}, {0.25f, -3, 7}},
        {"state kept in f64",
         true,
         {-1, 0, 1, 0, 0},
         {},
         {1, e30, -1},
         {1, 1, e30}},
        {"f32 between sections",
         true,
         {0, 0, 1, e30, 0, 0, 0, 1, -1, 0},
         {},
         {1, 1},
         {1, 0}},
        // t = (v - a1 w1) - a2 w2 and y = (b1 w1 + b0 t) + b2 w2: another
        // grouping would lose the 2^-60 term to cancellation.
        {"t grouping",
         true,
         {-1, -e60, 1, 0, 0},
         {},
         {1, 0, -1},
         {1, 1, (float)e60}},
        {"y grouping",
         true,
         {0, 0, 1, 1, e60},
         {},
         {1, 1, -1},
         {1, 2, (float)e60}},
    };
    for (const auto &k : cases)
        EXPECT_EQ(Bits(Filtered(
                      (k.sections ? Biquads(1, k.b) : Coefs(1, k.b, k.a)).get(),
                      k.x)),
                  Bits(k.y))
            << k.name;
}

// A stream through TOLV_Filter in blocks of random whole frames, empty ones
// included.
std::vector<float> InBlocks(_TOLV_FILTER *f, const std::vector<float> &x, int M)
{
    std::vector<float> y(x.size(), NAN);
    uint32_t seed = 1;
    for (size_t at = 0, n = 0; at < x.size(); at += n) {
        seed = seed * 1103515245u + 12345u;
        n = std::min((size_t)(seed >> 16) % 97 * M, x.size() - at);
        EXPECT_EQ(TOLV_Filter(f, x.data() + at, y.data() + at, n), 1);
    }
    return y;
}

// Cascades against a section-after-section evaluation of each channel. One
// section, and 64 channels of 8, take the frame-by-frame walk; the others
// the skewed one.
TEST(FilterRun, CascadeStreamAgainstSectionBySection)
{
    for (auto [M, S] : {std::pair{1, 1}, {1, 8}, {3, 5}, {64, 8}}) {
        const std::vector<float> u = UniformNoise(5 * S, 40 + S),
                                 x = UniformNoise(1000 * M, 8);
        std::vector<double> q;
        for (int s = 0; s < S; s++) {
            const double r = 0.7 + 0.2 * u[5 * s],
                         th = 1.6 + 1.5 * u[5 * s + 1];
            q.insert(q.end(),
                     {-2 * r * std::cos(th), r * r, (1 - r) * u[5 * s + 2],
                      (1 - r) * u[5 * s + 3], (1 - r) * u[5 * s + 4]});
        }
        const std::vector<float> y = InBlocks(Biquads(M, q).get(), x, M);
        for (int c = 0; c < M; c++) {
            std::vector<float> v, got;
            for (size_t p = c; p < x.size(); p += M) {
                v.push_back(x[p]);
                got.push_back(y[p]);
            }
            for (int s = 0; s < S; s++) {
                const double *k = &q[5 * s];
                double w1 = 0, w2 = 0;
                for (float &vn : v) {
                    const double w = (vn - k[0] * w1) - k[1] * w2;
                    vn = (float)((k[3] * w1 + k[2] * w) + k[4] * w2);
                    w2 = w1;
                    w1 = w;
                }
            }
            ASSERT_EQ(Bits(got), Bits(v))
                << M << " channels, " << S << " sections";
        }
    }
}

// The walk, per form.
const std::vector<double> kB = {0.2, -0.1, 0.3, 0.05},
                          kA = {1.5, -0.9, 0.4, -0.1};
const std::vector<double> kQ = {-1.2, 0.81, 0.5, 0.3,  0.2,
                                0.3,  0.81, 1.1, -0.4, 0.7};
using Maker = FilterPtr (*)(int M);
const Maker kForms[] = {[](int M) { return Coefs(M, kB, kA); },
                        [](int M) { return Biquads(M, kQ); }};
class Walk : public ::testing::TestWithParam<Maker> {};

// Each channel of an interleaved block is filtered on its own, also by a
// one-channel filter taking it through a stride, in place; a stream cut into
// blocks comes out the same.
TEST_P(Walk, ChannelsStridesAndSharedBuffers)
{
    const std::vector<float> x = UniformNoise(2 * 800, 12);
    std::vector<float> left, right, inPlace = x, strided = x;
    for (size_t i = 0; i < x.size(); i += 2) {
        left.push_back(x[i]);
        right.push_back(x[i + 1]);
    }
    const std::vector<float> y = Filtered(GetParam()(2).get(), x);
    const std::vector<float> yl = Filtered(GetParam()(1).get(), left);
    const std::vector<float> yr = Filtered(GetParam()(1).get(), right);
    TOLV_Filter(GetParam()(2).get(), inPlace.data(), inPlace.data(), x.size());
    EXPECT_EQ(TOLV_FilterEx(GetParam()(1).get(), strided.data(), strided.data(),
                            x.size(), 1, 2),
              1);
    EXPECT_EQ(Bits(inPlace), Bits(y));
    EXPECT_EQ(Bits(InBlocks(GetParam()(2).get(), x, 2)), Bits(y));
    for (size_t n = 0; n < yl.size(); n++) {
        ASSERT_EQ(Bits({y[2 * n], y[2 * n + 1]}), Bits({yl[n], yr[n]}));
        ASSERT_EQ(Bits({strided[2 * n], strided[2 * n + 1]}),
                  Bits({x[2 * n], yr[n]}));
    }
    // With the output one element ahead, each frame reads what the one
    // before it wrote, as frame-at-a-time calls would.
    std::vector<float> whole = x, single = x;
    TOLV_Filter(GetParam()(1).get(), whole.data(), whole.data() + 1, 299);
    FilterPtr g = GetParam()(1);
    for (size_t p = 0; p < 299; p++)
        TOLV_Filter(g.get(), single.data() + p, single.data() + p + 1, 1);
    EXPECT_EQ(Bits(whole), Bits(single));
}

// Only whole frames from start are touched; a walk that does not enter
// leaves output and state as they were. Null arguments are refused.
TEST_P(Walk, OnlyWholeFramesFromStartAreTouched)
{
    const int M = 2;
    const std::vector<float> x = UniformNoise(21, 14);
    const struct {
        uint32_t count, start;
        size_t first, end; // elements written
    } calls[] = {
        {1, 0, 0, 0},           // shorter than a frame
        {21, 20, 0, 0},         // start past the last frame
        {0xFFFFFFFFu, 0, 0, 0}, // count - M is negative as signed
        {21, 0, 0, 20},         // trailing half frame skipped
        {21, 19, 19, 21},       // a frame may start at any element
    };
    for (const auto &k : calls) {
        FilterPtr f = GetParam()(M);
        std::vector<float> y(x.size(), -7.0f), expect = y;
        EXPECT_EQ(
            TOLV_FilterEx(f.get(), x.data(), y.data(), k.count, k.start, M), 1);
        // Starting late is a fresh filter on the later samples.
        const std::vector<float> tail(x.begin() + k.first, x.end());
        const std::vector<float> yt = Filtered(GetParam()(M).get(), tail);
        std::copy(yt.begin(), yt.begin() + (k.end - k.first),
                  expect.begin() + k.first);
        EXPECT_EQ(Bits(y), Bits(expect)) << k.count << " " << k.start;
        if (k.end == 0) {
            EXPECT_EQ(Bits(Filtered(f.get(), x)),
                      Bits(Filtered(GetParam()(M).get(), x)));
        }
    }
    FilterPtr f = GetParam()(1);
    std::vector<float> buf(4, 1.0f);
    for (int i = 0; i < 3; i++) {
        float *in = i == 1 ? nullptr : buf.data(),
              *out = i == 2 ? nullptr : buf.data();
        EXPECT_EQ(TOLV_Filter(i ? f.get() : nullptr, in, out, 4), 0);
        EXPECT_EQ(TOLV_FilterEx(i ? f.get() : nullptr, in, out, 4, 0, 1), 0);
    }
    EXPECT_EQ(buf, std::vector<float>(4, 1.0f));
}

// Starts and steps of 2^31 or more read as negative positions: the walk
// keeps the frames that lie in the buffer, in the order it meets them, and
// ends at the first one before it. Each kept frame is checked against a
// twin filter run on that frame alone.
TEST_P(Walk, PositionsBeforeTheBufferEndTheWalk)
{
    const struct {
        uint32_t start, step;
        std::vector<int> frames;
    } cases[] = {{0xFFFFFFF0u, 1, {}},
                 {0x80000000u, 1, {}},
                 {0, 0x80000000u, {0}},
                 {3, 0xFFFFFFF0u, {3}},
                 {10, 0xFFFFFFFFu, {10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0}},
                 {5, 0xFFFFFFFEu, {5, 3, 1}}};
    const std::vector<float> x = UniformNoise(16, 5);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.start);
        FilterPtr f = GetParam()(1), twin = GetParam()(1);
        std::vector<float> y(16, 7.0f), expected(16, 7.0f);
        EXPECT_EQ(
            TOLV_FilterEx(f.get(), x.data(), y.data(), 16, c.start, c.step), 1);
        for (int p : c.frames)
            TOLV_FilterEx(twin.get(), x.data(), expected.data(), p + 1, p, 1);
        EXPECT_EQ(Bits(y), Bits(expected));
    }
}

INSTANTIATE_TEST_SUITE_P(Filter, Walk, ::testing::ValuesIn(kForms));

// Direct-form rings are indexed in signed 32 bits, rows of numChannels
// values: a ring whose index range does not fit is refused.
TEST(FilterRun, RingsBeyondThirtyTwoBitIndicesAreRefused)
{
    const std::vector<double> b(65536, 0.0), a = {1.0};
    EXPECT_EQ(TOLV_CreateFilterFromCoefs(32768, 65536, b.data(), 1, a.data()),
              nullptr);
    EXPECT_EQ(TOLV_CreateFilterFromCoefs(-2000000000, 3, b.data(), 1, a.data()),
              nullptr);
    EXPECT_EQ(TOLV_CreateFilter("numerator=[1 0.5], denominator=[1 -0.5], "
                                "nc=2000000000"),
              nullptr);
    // A long ring that fits is accepted.
    FilterPtr edge =
        Own(TOLV_CreateFilterFromCoefs(16, 65536, b.data(), 1, a.data()));
    EXPECT_NE(edge, nullptr);
}

TEST(FilterMemories, ResetAndUpdate)
{
    const std::vector<float> x1 = UniformNoise(2 * 77, 22),
                             x2 = UniformNoise(2 * 50, 24);
    for (Maker make : kForms) {
        FilterPtr f = make(2);
        Filtered(f.get(), x1);
        EXPECT_EQ(TOLV_ResetFilter(f.get()), 1);
        EXPECT_EQ(Bits(Filtered(f.get(), x2)),
                  Bits(Filtered(make(2).get(), x2)));
    }
    EXPECT_EQ(TOLV_ResetFilter(nullptr), 0);
    // New coefficients take over at the next frame on the old memory: a
    // filter with the new coefficients and a copy of the memory.
    std::vector<double> q2 = kQ;
    q2[2] = 0.8;
    FilterPtr f = Biquads(2, kQ), twin = Biquads(2, kQ), moved = Biquads(2, q2);
    Filtered(f.get(), x1);
    Filtered(twin.get(), x1);
    ASSERT_EQ(TOLV_CopyFilterMemories(moved.get(), twin.get()), 1);
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 2, q2.data()), 1);
    const std::vector<float> y = Filtered(f.get(), x2);
    EXPECT_EQ(Bits(y), Bits(Filtered(moved.get(), x2)));
    EXPECT_NE(Bits(y), Bits(Filtered(Biquads(2, q2).get(), x2)));
}

TEST(FilterMemories, BiquadCountRefusals)
{
    MessageLog log;
    std::vector<double> big(5 * 65537, 0.0);
    FilterPtr f = Biquads(1, kQ), twin = Biquads(1, kQ);
    EXPECT_EQ(TOLV_CreateFilterFromBiquads(1, 1, nullptr), nullptr);
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 2, nullptr), 0);
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 1, big.data()), 0);
    EXPECT_EQ(TOLV_UpdateFilterBiquads(Coefs(1, kB, kA).get(), 0, big.data()),
              0);
    EXPECT_TRUE(log.texts.empty());
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 65537, big.data()), 0);
    EXPECT_EQ(TOLV_CreateFilterFromBiquads(1, 65537, big.data()), nullptr);
    const std::string tooMany =
        "TOLV_CreateFilterFromBiquads: Too many biquads (65537)\n";
    EXPECT_EQ(log.texts, std::vector<std::string>(2, tooMany));
    const std::vector<float> x =
        UniformNoise(200, 25); // coefficients untouched
    EXPECT_EQ(Bits(Filtered(f.get(), x)), Bits(Filtered(twin.get(), x)));
    big[2] = 1;
    FilterPtr most = Own(TOLV_CreateFilterFromBiquads(1, 65536, big.data()));
    ASSERT_NE(most, nullptr);
    EXPECT_TRUE(SOS(most)->allocatedSections == 65536 &&
                SOS(most)->numSections == 65536);
    big[2] = 5; // the filter keeps its own records
    EXPECT_EQ(SOS(most)->sections[2], 1.0);
}

TEST(FilterMemories, DirectFormCopies)
{
    // Equal orders: rows as they lie, and head restarts at the last row.
    FilterPtr src = Coefs(2, kB, kA), dst = Coefs(2, kB, kA);
    Filtered(src.get(), UniformNoise(2 * 3, 26));
    ASSERT_EQ(DF(src)->head, 1);
    EXPECT_EQ(TOLV_CopyFilterMemories(dst.get(), src.get()), 1);
    EXPECT_EQ(DF(dst)->head, 3);
    EXPECT_EQ(std::vector<float>(DF(dst)->memory, DF(dst)->memory + 8),
              std::vector<float>(DF(src)->memory, DF(src)->memory + 8));
    // A longer destination: the clear starts at four times the first
    // uncopied row, so rows 1-3 keep their contents, 4-7 are cleared and the
    // rest of the stretch lies past the ring (all of it for order 3).
    const struct {
        int M, order;
        std::vector<float> ring;
    } cases[] = {
        {1, 7, {100, -2, -3, -4, 0, 0, 0, 0}},
        {2, 9, {100, 101, -3, -4, -5, -6, -7, -8, 0, 0,
                0,   0,   0,  0,  0,  0,  0,  0,  0, 0}},
        {1, 3, {100, -2, -3, -4}},
    };
    for (const auto &k : cases) {
        FilterPtr s = Coefs(k.M, {2}, {1}),
                  d = Coefs(k.M, std::vector<double>(k.order + 1, 0.1), {1});
        for (int i = 0; i < k.M; i++)
            DF(s)->memory[i] = 100.0f + i;
        for (size_t i = 0; i < k.ring.size(); i++)
            DF(d)->memory[i] = -1.0f - i;
        EXPECT_EQ(TOLV_CopyFilterMemories(d.get(), s.get()), 1);
        EXPECT_EQ(
            std::vector<float>(DF(d)->memory, DF(d)->memory + k.ring.size()),
            k.ring);
        EXPECT_EQ(DF(d)->head, k.order);
    }
    // A shorter destination takes the source's head of 5 over its order of
    // 2. Frames on rows past the ring see rows 0 and 1 as history and store
    // nothing the ring keeps, until head is back inside it.
    FilterPtr longer = Coefs(1, std::vector<double>(8, 0.5), {1});
    Filtered(longer.get(), {0, 0, 0});
    DF(longer)->memory[0] = 2;
    DF(longer)->memory[1] = 3;
    FilterPtr shorter = Coefs(1, {0, 1, 10}, {1}),
              again = Coefs(1, {0, 1, 10}, {1});
    EXPECT_EQ(TOLV_CopyFilterMemories(shorter.get(), longer.get()), 1);
    EXPECT_EQ(TOLV_CopyFilterMemories(again.get(), shorter.get()), 1);
    EXPECT_EQ(DF(again)->head, 5);
    for (const FilterPtr *g : {&shorter, &again})
        EXPECT_EQ(Filtered(g->get(), {1, 2, 3, 4, 5, 6}),
                  (std::vector<float>{32, 32, 32, 32, 24, 45}));
}

TEST(FilterMemories, SectionCopies)
{
    // Equal counts carry ring and head over: the two go on as one.
    FilterPtr src = Biquads(2, kQ), dst = Biquads(2, kQ);
    Filtered(src.get(), UniformNoise(2 * 7, 27));
    EXPECT_EQ(TOLV_CopyFilterMemories(dst.get(), src.get()), 1);
    const std::vector<float> x = UniformNoise(2 * 100, 29);
    EXPECT_EQ(Bits(Filtered(dst.get(), x)), Bits(Filtered(src.get(), x)));
    // Rings marked base + slope * index, to see what each copy moves and
    // clears. The clear for channel c starts at srcS + M c: for channel 0
    // exactly the added sections, for later ones elsewhere in the row, and
    // the last row's last clear runs past the ring.
    const struct {
        int M, srcS, dstS;
        std::vector<double> row0, row3; // destination rows after the copy
        int srcHead, head;
    } cases[] = {
        {2, 1, 3, {100, 0, 0, 0, 0, -6}, {106, 0, 0, 0, 0, -24}, 1, 1},
        {3,
         1,
         2,
         {100, 0, 101, -4, 102, -6},
         {109, 0, 110, -22, 111, -24},
         2,
         2},
        {2, 3, 1, {100, 103}, {118, 121}, 3, 3},
        {2,
         0,
         2,
         {0, 0, 0, 0},
         {0, 0, 0, 0},
         2,
         0},                     // no source sections: silence
        {2, 2, 0, {}, {}, 2, 0}, // no destination sections
    };
    for (const auto &k : cases) {
        FilterPtr s = Biquads(k.M, std::vector<double>(5 * k.srcS, 0.0));
        FilterPtr d = Biquads(k.M, std::vector<double>(5 * k.dstS, 0.0));
        for (int i = 0; i < 4 * k.M * k.srcS; i++)
            SOS(s)->memory[i] = 100 + i;
        for (int i = 0; i < 4 * k.M * k.dstS; i++)
            SOS(d)->memory[i] = -1 - i;
        SOS(s)->head = k.srcHead;
        SOS(d)->head = 1;
        EXPECT_EQ(TOLV_CopyFilterMemories(d.get(), s.get()), 1);
        const double *m = SOS(d)->memory;
        const size_t row = k.row0.size();
        EXPECT_EQ(std::vector<double>(m, m + row), k.row0);
        EXPECT_EQ(std::vector<double>(m + 3 * row, m + 4 * row), k.row3);
        EXPECT_EQ(SOS(d)->head, k.head);
    }
}

TEST(FilterMemories, CopyRefusals)
{
    FilterPtr dst = Biquads(2, kQ), typed = Biquads(2, kQ),
              direct = Coefs(2, kB, kA), mono = Biquads(1, kQ);
    Filtered(dst.get(), UniformNoise(2 * 5, 30));
    const std::vector<double> before(SOS(dst)->memory, SOS(dst)->memory + 16);
    const int head = SOS(dst)->head;
    typed->filterType = 1; // as a designed highpass
    EXPECT_EQ(TOLV_CopyFilterMemories(nullptr, typed.get()), 0);
    for (_TOLV_FILTER *src :
         {(_TOLV_FILTER *)nullptr, direct.get(), mono.get(), typed.get()})
        EXPECT_EQ(TOLV_CopyFilterMemories(dst.get(), src), 0);
    EXPECT_EQ(std::vector<double>(SOS(dst)->memory, SOS(dst)->memory + 16),
              before);
    EXPECT_EQ(SOS(dst)->head, head);
}

int NotAFilter(_TOLV_FILTER *, const float *, float *, uint32_t, uint32_t,
               uint32_t)
{
    return 1;
}

TEST(FilterMemories, DestroyMessages)
{
    MessageLog log;
    EXPECT_EQ(TOLV_DestroyFilter(nullptr), 0);
    _TOLV_FILTER *f = Biquads(1, kQ).release();
    _DFIISOSstate *state = (_DFIISOSstate *)f->stateData;
    f->stateData = nullptr;
    EXPECT_EQ(TOLV_DestroyFilter(f), 1);
    f = (_TOLV_FILTER *)calloc(1, sizeof(_TOLV_FILTER));
    f->filterFn = NotAFilter;
    f->stateData = state; // left allocated: freed here, once
    EXPECT_EQ(TOLV_DestroyFilter(f), 1);
    free(state->sections);
    free(state->memory);
    free(state);
    EXPECT_EQ(log.texts, (std::vector<std::string>{
                             "TOLV_DestroyFilter: Filter state is NULL!",
                             "TOLV_DestroyFilter: Invalid filter type!"}));
}

// A negative channel count walks no channel: every object made with one can
// be reset, copied into and destroyed without touching memory it does not own.
TEST(FilterMemories, NegativeChannelCountsOwnEmptyRings)
{
    for (int channels : {-1, -7}) {
        FilterPtr f[] = {
            Coefs(channels, kB, kA), Coefs(channels, {0.2, 0.4}, kA),
            Biquads(channels, kQ),
            Biquads(channels, {-1.2, 0.5, 0.1, 0.2, 0.1}),
            Own(TOLV_CreateFilter("order=4, fpass=0.25, nc=%d", channels))};
        for (FilterPtr &g : f)
            EXPECT_TRUE(g == nullptr || TOLV_ResetFilter(g.get()) == 1);
        for (int i = 0; i < 4; i++) {
            ASSERT_NE(f[i], nullptr);
            EXPECT_EQ(TOLV_CopyFilterMemories(f[i].get(), f[i ^ 1].get()), 1);
        }
    }
}

} // namespace
