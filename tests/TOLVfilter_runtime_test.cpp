// Filter run-time and memories: both forms to the last bit against
// independent models under random block splits, the frame walk, reset,
// updates, the copies between rings of unequal size, refusals and messages.
#include <algorithm>
#include <utility>

#include "filter_test_util.h"
#include "lanes.h"

namespace {

const auto Copy = [](const FilterPtr &d, const FilterPtr &s) {
    return TOLV_CopyFilterMemories(d.get(), s.get());
};

// Direct form II of one channel: coefficients divided by a[0] in f64 and
// rounded, every product and sum in f32, taps in order, the w[n] term last.
Floats DirectModel(const Doubles &b, const Doubles &a, Floats v)
{
    Floats w(std::max(b.size(), a.size()), 0.0f); // w[k] = w[n - k]
    for (float &x : v) {
        std::rotate(w.rbegin(), w.rbegin() + 1, w.rend());
        float y = 0.0f;
        w[0] = x;
        for (size_t k = 1; k < w.size(); k++) {
            w[0] -= k < a.size() ? (float)(a[k] / a[0]) * w[k] : 0.0f;
            y += k < b.size() ? (float)(b[k] / a[0]) * w[k] : 0.0f;
        }
        x = y + w[0] * (float)(b[0] / a[0]);
    }
    return v;
}

// Sections one after another: f64 state, t = (v - a1 w1) - a2 w2 and
// y = (b1 w1 + b0 t) + b2 w2, the signal rounded to f32 between them.
Floats CascadeModel(const Doubles &q, Floats v)
{
    for (size_t s = 0; s < q.size(); s += 5) {
        double w1 = 0, w2 = 0;
        for (float &x : v) {
            const double w = (x - q[s] * w1) - q[s + 1] * w2;
            x = (float)((q[s + 3] * w1 + q[s + 2] * w) + q[s + 4] * w2);
            w2 = std::exchange(w1, w);
        }
    }
    return v;
}

// A direct form of nb, na coefficients (a[0] != 1, |a[k]| summing below
// it) where S < 0, else S sections with poles of radius 0.8 to 0.9, at the
// default lanes and at every width (1: the walk skewed by a frame, or frame
// by frame for one section and for 64 channels of 8), also with 33
// sections, more than the lanes hold. Blocks are of random whole frames,
// empty ones included, every other one filtered in place.
TEST(FilterRun, BothFormsAgainstModelsInRandomBlocks)
{
    const struct {
        int M, nb, na, S;
    } cases[] = {{1, 1, 1, -1}, {2, 4, 2, -1}, {3, 2, 5, -1}, {1, 3, 3, -1},
                 {2, 0, 0, 0},  {1, 0, 0, 1},  {1, 0, 0, 8},  {3, 0, 0, 5},
                 {64, 0, 0, 8}, {1, 0, 0, 20}, {2, 0, 0, 33}};
    for (int lanes = 0; lanes <= 2 << _TOLV_VectorLevel();
         lanes = lanes ? 2 * lanes : 1)
        for (const auto &c : cases) {
            _DFIISOSSetLanes(lanes);
            ASSERT_TRUE(lanes == 0 || _DFIISOSLanes() == lanes);
            const Floats u = UniformNoise(20 + 5 * std::max(c.S, 8),
                                          c.M + c.S + c.nb),
                         x = UniformNoise(1000 * c.M, 8);
            Doubles b(u.begin() + 10, u.begin() + 10 + c.nb), a = {1.5 + u[0]},
                                                              q;
            for (int k = 1; k < c.na; k++)
                a.push_back(0.9 * a[0] * u[k] / c.na);
            for (int s = 0; s < c.S; s++) {
                const float *r = &u[20 + 5 * s];
                const double rad = 0.85 + 0.05 * r[0], th = 1.6 + 1.5 * r[1];
                q.insert(q.end(), {-2 * rad * std::cos(th), rad * rad,
                                   (1 - rad) * r[2], (1 - rad) * r[3], r[4]});
            }
            FilterPtr f = c.S < 0 ? Coefs(c.M, b, a) : Biquads(c.M, q);
            Floats y(x.size(), NAN), v, got;
            for (size_t at = 0, n = 0, seed = c.M; at < x.size(); at += n) {
                seed = (seed * 1103515245u + 12345u) & 0xFFFFFFFFu;
                n = std::min((seed >> 16) % 97 * c.M, x.size() - at);
                if (seed & 1)
                    std::copy(&x[at], &x[at] + n, &y[at]);
                EXPECT_EQ(
                    TOLV_Filter(f.get(), seed & 1 ? &y[at] : &x[at], &y[at], n),
                    1);
            }
            for (int ch = 0; ch < c.M; ch++, v.clear(), got.clear()) {
                for (size_t p = ch; p < x.size(); p += c.M)
                    v.push_back(x[p]), got.push_back(y[p]);
                v = c.S < 0 ? DirectModel(b, a, v) : CascadeModel(q, v);
                ASSERT_EQ(Bits(got), Bits(v))
                    << c.M << " " << c.S << " " << ch << " at " << lanes;
            }
        }
    _DFIISOSSetLanes(0);
}

const Doubles kB = {0.2, -0.1, 0.3, 0.05}, kA = {1.5, -0.9, 0.4, -0.1},
              kQ = {-1.2, 0.81, 0.5, 0.3, 0.2, 0.3, 0.81, 1.1, -0.4, 0.7};
using Maker = FilterPtr (*)(int M);
const Maker kForms[] = {[](int M) { return Coefs(M, kB, kA); },
                        [](int M) { return Biquads(M, kQ); }};
class Walk : public ::testing::TestWithParam<Maker> {};

// Frames at start, start + step, ... while the position, read as signed,
// is neither past count - M nor negative; each checked against a twin
// filter run on that frame alone, the rest untouched, also in place.
TEST_P(Walk, FramesOfAnyCall)
{
    const struct {
        int M;
        uint32_t count, start, step;
    } calls[] = {
        // Shorter than a frame, start past the last frame, count - M
        // negative as signed, a trailing half frame, a frame at any element,
        // one channel of a stereo buffer; then positions before the buffer.
        // clang-format off
        {2, 1, 0, 2}, {2, 21, 20, 2}, {2, 0xFFFFFFFFu, 0, 2}, {2, 21, 0, 2}, {2, 21, 19, 2},
        {2, 1600, 0, 2}, {3, 999, 0, 3}, {3, 999, 3, 6}, {1, 1600, 1, 2},
        {1, 16, 0xFFFFFFF0u, 1}, {1, 16, 0x80000000u, 1}, {1, 16, 0, 0x80000000u},
        {1, 16, 3, 0xFFFFFFF0u}, {1, 16, 10, 0xFFFFFFFFu}, {1, 16, 5, 0xFFFFFFFEu},
        // clang-format on
    };
    const Floats x = UniformNoise(1600, 12);
    for (const auto &k : calls) {
        FilterPtr f = GetParam()(k.M), g = GetParam()(k.M), t = GetParam()(k.M);
        Floats y(x.size(), 7.0f), want = y, same = x, sameWant = x;
        TOLV_FilterEx(f.get(), &x[0], &y[0], k.count, k.start, k.step);
        TOLV_FilterEx(g.get(), &same[0], &same[0], k.count, k.start, k.step);
        for (uint32_t p = k.start;
             (int32_t)p <= (int32_t)(k.count - k.M) && (int32_t)p >= 0;
             p += k.step) {
            TOLV_FilterEx(t.get(), &x[0], &want[0], p + k.M, p, k.M);
            std::copy_n(&want[p], k.M, &sameWant[p]);
        }
        EXPECT_TRUE(Bits(y) == Bits(want) && Bits(same) == Bits(sameWant))
            << k.count << " " << k.start << " " << k.step;
    }
    // With the output one element ahead, each frame reads what the one
    // before it wrote, as frame-at-a-time calls would.
    Floats whole = x, single = x;
    EXPECT_EQ(TOLV_Filter(GetParam()(1).get(), &whole[0], &whole[1], 299), 1);
    FilterPtr g = GetParam()(1);
    for (size_t p = 0; p < 299; p++)
        TOLV_FilterEx(g.get(), &single[p], &single[p + 1], 1, 0, 1);
    for (int i = 0; i < 3; i++) { // null arguments are refused
        float *in = i == 1 ? nullptr : &whole[0], *out = i == 2 ? nullptr : in;
        EXPECT_FALSE(TOLV_Filter(i ? g.get() : nullptr, in, out, 4) ||
                     TOLV_FilterEx(i ? g.get() : nullptr, in, out, 4, 0, 1));
    }
    EXPECT_EQ(Bits(whole), Bits(single));
}

INSTANTIATE_TEST_SUITE_P(Filter, Walk, ::testing::ValuesIn(kForms));

// A reset filter is a new one; new coefficients take over at the next frame
// on the old memory, as a filter with them and a copy of the memory; counts,
// records and rings whose signed 32-bit indices do not fit are refused.
TEST(FilterMemories, ResetUpdateAndRefusals)
{
    const Floats x1 = UniformNoise(2 * 77, 22), x2 = UniformNoise(2 * 50, 24);
    for (Maker make : kForms) {
        FilterPtr f = make(2);
        Filtered(f.get(), x1);
        EXPECT_EQ(TOLV_ResetFilter(f.get()), 1);
        EXPECT_EQ(Bits(Filtered(f.get(), x2)),
                  Bits(Filtered(make(2).get(), x2)));
    }
    EXPECT_EQ(TOLV_ResetFilter(nullptr), 0);
    Doubles q2 = kQ, big(5 * 65537, 0.0);
    q2[2] = 0.8;
    FilterPtr f = Biquads(2, kQ), twin = Biquads(2, kQ), moved = Biquads(2, q2);
    Filtered(f.get(), x1);
    Filtered(twin.get(), x1);
    ASSERT_EQ(Copy(moved, twin), 1);
    Messages log;
    EXPECT_FALSE(TOLV_UpdateFilterBiquads(nullptr, 2, q2.data()) ||
                 TOLV_UpdateFilterBiquads(f.get(), 2, nullptr) ||
                 TOLV_UpdateFilterBiquads(f.get(), 1, &big[0]) ||
                 TOLV_UpdateFilterBiquads(f.get(), 65537, &big[0]) ||
                 TOLV_UpdateFilterBiquads(kForms[0](1).get(), 0, &big[0]));
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 2, q2.data()), 1);
    const Floats y = Filtered(f.get(), x2);
    EXPECT_EQ(Bits(y), Bits(Filtered(moved.get(), x2)));
    EXPECT_NE(Bits(y), Bits(Filtered(Biquads(2, q2).get(), x2)));
    EXPECT_TRUE(!TOLV_CreateFilterFromBiquads(1, 1, nullptr) &&
                !Biquads(1, big));
    EXPECT_EQ(Texts(log), Strings(2, "TOLV_CreateFilterFromBiquads: Too many "
                                     "biquads (65537)\n"));
    big.resize(5 * 65536);
    big[2] = 1;
    FilterPtr most = Biquads(1, big);
    big[2] = 5; // the filter keeps its own records
    EXPECT_TRUE(SOS(most)->allocatedSections == 65536 &&
                SOS(most)->numSections == 65536 && SOS(most)->sections[2] == 1);
    const Doubles b(65536, 0.0), a = {1.0};
    EXPECT_TRUE(!Coefs(32768, b, a) && !Coefs(-2000000000, {1, 2, 3}, a) &&
                !Make("numerator=[1 2], denominator=[1 2], nc=2000000000") &&
                Coefs(16, b, a));
}

template <class T>
void Mark(T *ring, size_t n, T first, T step)
{
    for (size_t i = 0; i < n; i++)
        ring[i] = first + step * i;
}

// Rings marked with values, to see what each copy moves and clears. Direct
// forms (sizes are orders) copy the rows both have as they lie; a longer
// destination clears from four times the first uncopied row, mostly past
// the ring; head becomes the larger of its order and the source's head.
// Cascades (sizes are section counts) of equal size carry ring and head
// over and go on as one; else the clear for channel c starts at srcS + M c,
// and a side without sections leaves head 0.
void CheckCopies(bool sos)
{
    const struct {
        bool sos;
        int M, src, dst, srcHead, head;
        Doubles ring;
    } cases[] = {
        // clang-format off
        {false, 2, 3, 3, 1, 3, {100, 101, 102, 103, 104, 105, 106, 107}}, {false, 1, 7, 2, 5, 5, {100, 101, 102}},
        {false, 1, 0, 7, 0, 7, {100, -2, -3, -4, 0, 0, 0, 0}}, {false, 1, 0, 3, 0, 3, {100, -2, -3, -4}},
        {false, 2, 0, 9, 0, 9, {100, 101, -3, -4, -5, -6, -7, -8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {true, 1, 2, 2, 3, 3, {100, 101, 102, 103, 104, 105, 106, 107}},
        {true, 2, 1, 3, 1, 1, {100, 0, 0, 0, 0, -6, 102, 0, 0, 0, 0, -12, 104, 0, 0, 0, 0, -18, 106, 0, 0, 0, 0, -24}},
        {true, 3, 1, 2, 2, 2,
         {100, 0, 101, -4, 102, -6, 103, 0, 104, -10, 105, -12, 106, 0, 107, -16, 108, -18, 109, 0, 110, -22, 111, -24}},
        {true, 2, 3, 1, 3, 3, {100, 103, 106, 109, 112, 115, 118, 121}},
        {true, 2, 0, 2, 2, 0, Doubles(16, 0.0)}, {true, 2, 2, 0, 2, 0, {}},
        // clang-format on
    };
    for (const auto &c : cases) {
        if (c.sos != sos)
            continue;
        const auto Of = [&](int n) {
            return c.sos ? Biquads(c.M, Doubles(5 * n, 0.5))
                         : Coefs(c.M, Doubles(n + 1, 0.5), {1});
        };
        FilterPtr s = Of(c.src), d = Of(c.dst);
        const size_t sn = c.M * (c.sos ? 4 * c.src : c.src + 1),
                     dn = c.M * (c.sos ? 4 * c.dst : c.dst + 1);
        if (c.sos) {
            Mark(SOS(s)->memory, sn, 100.0, 1.0);
            Mark(SOS(d)->memory, dn, -1.0, -1.0);
            SOS(s)->head = c.srcHead, SOS(d)->head = 1;
        } else {
            Mark(DF(s)->memory, sn, 100.0f, 1.0f);
            Mark(DF(d)->memory, dn, -1.0f, -1.0f);
            DF(s)->head = c.srcHead, DF(d)->head = 1;
        }
        EXPECT_EQ(Copy(d, s), 1);
        EXPECT_EQ(c.sos ? Doubles(SOS(d)->memory, SOS(d)->memory + dn)
                        : Doubles(DF(d)->memory, DF(d)->memory + dn),
                  c.ring)
            << c.sos << " " << c.M << " " << c.src << " " << c.dst;
        EXPECT_EQ(c.sos ? SOS(d)->head : DF(d)->head, c.head);
        EXPECT_TRUE(!c.sos || c.src != c.dst ||
                    Filtered(s.get(), {1, 2}) == Filtered(d.get(), {1, 2}));
    }
}

TEST(FilterMemories, DirectFormCopies)
{
    CheckCopies(false);
    // Frames of a direct form whose head lies past its ring see rows 0 and 1
    // as history and store nothing the ring keeps, until head is back inside.
    FilterPtr longer = Coefs(1, Doubles(8, 0.5), {1});
    Filtered(longer.get(), {0, 0, 0});
    DF(longer)->memory[0] = 2;
    DF(longer)->memory[1] = 3;
    FilterPtr shorter = Coefs(1, {0, 1, 10}, {1}),
              again = Coefs(1, {0, 1, 10}, {1});
    EXPECT_TRUE(Copy(shorter, longer) && Copy(again, shorter) &&
                DF(again)->head == 5);
    for (const FilterPtr *g : {&shorter, &again})
        EXPECT_EQ(Filtered(g->get(), {1, 2, 3, 4, 5, 6}),
                  (Floats{32, 32, 32, 32, 24, 45}));
}

TEST(FilterMemories, SectionCopies)
{
    CheckCopies(true);
    // A null filter, another form, channel count or type code: no copy.
    FilterPtr dst = Biquads(2, kQ), typed = Biquads(2, kQ);
    Filtered(dst.get(), {1, 2, 3, 4, 5, 6});
    const Doubles before(SOS(dst)->memory, SOS(dst)->memory + 16);
    typed->filterType = 1; // as a designed highpass
    EXPECT_EQ(TOLV_CopyFilterMemories(nullptr, typed.get()), 0);
    for (const FilterPtr &s :
         {Own(nullptr), kForms[0](2), kForms[1](1), std::move(typed)})
        EXPECT_EQ(Copy(dst, s), 0);
    EXPECT_TRUE(Doubles(SOS(dst)->memory, SOS(dst)->memory + 16) == before &&
                SOS(dst)->head == 1);
}

int NotAFilter(_TOLV_FILTER *, const float *, float *, uint32_t, uint32_t,
               uint32_t)
{
    return 1;
}

// Destroying a filter without state, or of an unknown form, is reported.
// A negative channel count walks no channel: every object made with one is
// reset, copied into and destroyed without touching memory it does not own.
TEST(FilterMemories, DestroyAndNegativeChannelCounts)
{
    Messages log;
    EXPECT_EQ(TOLV_DestroyFilter(nullptr), 0);
    _TOLV_FILTER *f = Biquads(1, kQ).release();
    _DFIISOSstate *state = (_DFIISOSstate *)f->stateData;
    f->stateData = nullptr;
    EXPECT_EQ(TOLV_DestroyFilter(f), 1);
    f = (_TOLV_FILTER *)calloc(1, sizeof(_TOLV_FILTER));
    f->filterFn = NotAFilter;
    f->stateData = state; // left allocated: freed here, once
    EXPECT_EQ(TOLV_DestroyFilter(f), 1);
    free(state->sections), free(state->memory), free(state);
    EXPECT_EQ(Texts(log),
              (Strings{"TOLV_DestroyFilter: Filter state is NULL!",
                       "TOLV_DestroyFilter: Invalid filter type!"}));
    for (int M : {-1, -7}) {
        FilterPtr g[] = {
            Coefs(M, kB, kA), Coefs(M, {0.2, 0.4}, kA), Biquads(M, kQ),
            Biquads(M, {-1.2, 0.5, 0.1, 0.2, 0.1}),
            Own(TOLV_CreateFilter("order=4, fpass=0.25, nc=%d", M))};
        for (int i = 0; i < 5; i++)
            EXPECT_TRUE(TOLV_ResetFilter(g[i].get()) &&
                        (i == 4 || Copy(g[i], g[i ^ 1])));
    }
}

} // namespace
