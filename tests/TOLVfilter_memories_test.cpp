/*
 * Filter memories and lifetime: reset, coefficient updates, copies between
 * filters of equal and unequal size (with their lopsided clears), refusals
 * and the destructor's messages. Rings are filled with markers through the
 * private header so that every element a copy moves or clears is seen.
 */
#include "TOLVfilter/filter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "filter_test_util.h"

namespace {

const std::vector<double> kB = {0.2, -0.1, 0.3, 0.05};
const std::vector<double> kA = {1.5, -0.9, 0.4, -0.1};
const std::vector<double> kQ = {-1.2, 0.81, 0.5, 0.3, 0.2,
                                0.3,  0.81, 1.1, -0.4, 0.7};

_DFIIstate *DF(const FilterPtr &f) { return (_DFIIstate *)f->stateData; }
_DFIISOSstate *SOS(const FilterPtr &f) { return (_DFIISOSstate *)f->stateData; }

/* Sections of n records whose ring holds base + slope * index. */
FilterPtr MarkedSections(int M, int n, double base, double slope, int head)
{
    FilterPtr f = Biquads(M, std::vector<double>(5 * n, 0.0));
    for (int i = 0; i < 4 * M * n; i++)
        SOS(f)->memory[i] = base + slope * i;
    SOS(f)->head = head;
    return f;
}

TEST(FilterMemories, ResetGivesAFreshFilter)
{
    const std::vector<float> x = Noise(2 * 300, 21);
    for (bool sections : {false, true}) {
        FilterPtr f = sections ? Biquads(2, kQ) : Coefs(2, kB, kA);
        FilterPtr fresh = sections ? Biquads(2, kQ) : Coefs(2, kB, kA);
        Filtered(f.get(), Noise(2 * 77, 22));
        EXPECT_EQ(TOLV_ResetFilter(f.get()), 1);
        EXPECT_EQ(Bits(Filtered(f.get(), x)), Bits(Filtered(fresh.get(), x)));
    }
    EXPECT_EQ(TOLV_ResetFilter(nullptr), 0);
}

/* New coefficients take over at the next frame on the old memory: the
 * result is that of a filter with the new coefficients and a copy of the
 * memory, and differs from both a fresh one and the unchanged one. */
TEST(FilterMemories, UpdateKeepsTheRing)
{
    std::vector<double> q2 = kQ;
    q2[2] = 0.8;
    q2[6] = 0.77;
    const std::vector<float> x1 = Noise(2 * 50, 23), x2 = Noise(2 * 50, 24);
    FilterPtr f = Biquads(2, kQ), twin = Biquads(2, kQ);
    Filtered(f.get(), x1);
    Filtered(twin.get(), x1);
    FilterPtr moved = Biquads(2, q2);
    ASSERT_EQ(TOLV_CopyFilterMemories(moved.get(), twin.get()), 1);

    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 2, q2.data()), 1);
    const std::vector<float> y = Filtered(f.get(), x2);
    EXPECT_EQ(Bits(y), Bits(Filtered(moved.get(), x2)));
    EXPECT_NE(Bits(y), Bits(Filtered(Biquads(2, q2).get(), x2)));
    EXPECT_NE(Bits(y), Bits(Filtered(twin.get(), x2)));
}

TEST(FilterMemories, UpdateRefusals)
{
    MessageLog log;
    FilterPtr f = Biquads(1, kQ), twin = Biquads(1, kQ);
    std::vector<double> big(5 * 65537, 0.0);
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 2, nullptr), 0);
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 1, big.data()), 0);
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 3, big.data()), 0);
    EXPECT_TRUE(log.entries.empty());
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 65537, big.data()), 0);
    ASSERT_EQ(log.entries.size(), 1u);
    EXPECT_EQ(log.entries[0].level, KEEL_LEVEL_ERROR);
    EXPECT_EQ(log.entries[0].code, -1);
    EXPECT_EQ(log.entries[0].text,
              "TOLV_CreateFilterFromBiquads: Too many biquads (65537)\n");
    // Nothing of the refused calls reached the coefficients.
    const std::vector<float> x = Noise(200, 25);
    EXPECT_EQ(Bits(Filtered(f.get(), x)), Bits(Filtered(twin.get(), x)));
    // A direct-form filter has no records to replace.
    EXPECT_EQ(TOLV_UpdateFilterBiquads(Coefs(1, kB, kA).get(), 0, big.data()),
              0);
}

/* Designed cascades leave allocatedSections at 0 and still take updates. */
TEST(FilterMemories, UpdateOfABuiltCascade)
{
    FilterPtr f = Biquads(1, kQ);
    SOS(f)->allocatedSections = 0;
    const std::vector<double> gain = {0, 0, 2, 0, 0, 0, 0, 0.5, 0, 0};
    EXPECT_EQ(TOLV_UpdateFilterBiquads(f.get(), 2, gain.data()), 1);
    EXPECT_EQ(Filtered(f.get(), {3, -1}), (std::vector<float>{3, -1}));
}

TEST(FilterMemories, CreateFromBiquadsLimits)
{
    MessageLog log;
    EXPECT_EQ(TOLV_CreateFilterFromBiquads(1, 1, nullptr), nullptr);
    EXPECT_TRUE(log.entries.empty());
    std::vector<double> q(5 * 65537, 0.0);
    EXPECT_EQ(TOLV_CreateFilterFromBiquads(1, 65537, q.data()), nullptr);
    ASSERT_EQ(log.entries.size(), 1u);
    EXPECT_EQ(log.entries[0].level, KEEL_LEVEL_ERROR);
    EXPECT_EQ(log.entries[0].text,
              "TOLV_CreateFilterFromBiquads: Too many biquads (65537)\n");
    q.resize(5 * 65536);
    q[2] = 1;
    FilterPtr f(TOLV_CreateFilterFromBiquads(1, 65536, q.data()),
                TOLV_DestroyFilter);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(SOS(f)->allocatedSections, 65536);
    EXPECT_EQ(SOS(f)->numSections, 65536);
    q[2] = 5; // the filter keeps its own records
    EXPECT_EQ(SOS(f)->sections[2], 1.0);
    EXPECT_EQ(log.entries.size(), 1u);
}

/* Equal orders: rows as they lie, and head restarts at the last row. */
TEST(FilterMemories, DirectFormCopyEqualOrders)
{
    FilterPtr src = Coefs(2, kB, kA), dst = Coefs(2, kB, kA);
    Filtered(src.get(), Noise(2 * 3, 26));
    ASSERT_EQ(DF(src)->head, 1);
    EXPECT_EQ(TOLV_CopyFilterMemories(dst.get(), src.get()), 1);
    EXPECT_EQ(DF(dst)->head, 3);
    for (int i = 0; i < 8; i++)
        EXPECT_EQ(DF(dst)->memory[i], DF(src)->memory[i]);
}

/* A longer destination: the clear starts at four times the first uncopied
 * row, so rows 1-3 keep their contents, rows 4-7 are cleared, and the rest
 * of the stretch lies past the ring. */
TEST(FilterMemories, DirectFormCopyIntoLongerRing)
{
    struct Case {
        int M, dstOrder;
        std::vector<float> expect;
    } cases[] = {
        {1, 7, {100, -2, -3, -4, 0, 0, 0, 0}},
        {2, 9, {100, 101, -3, -4, -5, -6, -7, -8, 0, 0,
                0,   0,   0,  0,  0,  0,  0,  0,  0, 0}},
        {1, 3, {100, -2, -3, -4}}, // the whole clear lies past the ring
    };
    for (const Case &k : cases) {
        FilterPtr src = Coefs(k.M, {2}, {1});
        FilterPtr dst = Coefs(k.M, std::vector<double>(k.dstOrder + 1, 0.1),
                              {1});
        for (int i = 0; i < k.M; i++)
            DF(src)->memory[i] = 100.0f + i;
        for (size_t i = 0; i < k.expect.size(); i++)
            DF(dst)->memory[i] = -1.0f - i;
        EXPECT_EQ(TOLV_CopyFilterMemories(dst.get(), src.get()), 1);
        EXPECT_EQ(std::vector<float>(DF(dst)->memory,
                                     DF(dst)->memory + k.expect.size()),
                  k.expect);
        EXPECT_EQ(DF(dst)->head, k.dstOrder);
    }
}

/* A shorter destination takes the source's head of 5 over its own order of
 * 2. Frames on rows past the ring see rows 0 and 1 as history and store
 * nothing the ring keeps, until head is back inside it. */
TEST(FilterMemories, DirectFormCopyIntoShorterRing)
{
    FilterPtr src = Coefs(1, std::vector<double>(8, 0.5), {1});
    Filtered(src.get(), {0, 0, 0});
    ASSERT_EQ(DF(src)->head, 5);
    DF(src)->memory[0] = 2;
    DF(src)->memory[1] = 3;
    FilterPtr dst = Coefs(1, {0, 1, 10}, {1}), again = Coefs(1, {0, 1, 10}, {1});
    EXPECT_EQ(TOLV_CopyFilterMemories(dst.get(), src.get()), 1);
    EXPECT_EQ(DF(dst)->head, 5);
    EXPECT_EQ(TOLV_CopyFilterMemories(again.get(), dst.get()), 1);
    EXPECT_EQ(DF(again)->head, 5);
    const std::vector<float> y = {32, 32, 32, 32, 4 + 20, 5 + 40};
    EXPECT_EQ(Filtered(dst.get(), {1, 2, 3, 4, 5, 6}), y);
    EXPECT_EQ(Filtered(again.get(), {1, 2, 3, 4, 5, 6}), y);
}

/* Equal section counts carry ring and head over, so the two filters go on
 * as one. */
TEST(FilterMemories, SectionCopyEqualCounts)
{
    FilterPtr src = Biquads(2, kQ), dst = Biquads(2, kQ);
    Filtered(src.get(), Noise(2 * 7, 27));
    Filtered(dst.get(), Noise(2 * 2, 28));
    EXPECT_EQ(TOLV_CopyFilterMemories(dst.get(), src.get()), 1);
    const std::vector<float> x = Noise(2 * 100, 29);
    EXPECT_EQ(Bits(Filtered(dst.get(), x)), Bits(Filtered(src.get(), x)));
}

TEST(FilterMemories, SectionCopyUnequalCounts)
{
    struct Case {
        int M, srcS, dstS;
        std::vector<double> row0, row3; // destination rows after the copy
        int srcHead, head;
    } cases[] = {
        // Channel 0 gets its added sections cleared; channel 1's clear
        // falls on its own first section and misses its last one.
        {2, 1, 3, {100, 0, 0, 0, 0, -6}, {106, 0, 0, 0, 0, -24}, 1, 1},
        // The clear of channel c starts at sS + M * c: channels 1 and 2
        // keep old values, and the last row's last clear is past the ring.
        {3, 1, 2, {100, 0, 101, -4, 102, -6}, {109, 0, 110, -22, 111, -24}, 2, 2},
        {2, 3, 1, {100, 103}, {118, 121}, 3, 3},
        // A source without sections silences the destination.
        {2, 0, 2, {0, 0, 0, 0}, {0, 0, 0, 0}, 2, 0},
    };
    for (const Case &k : cases) {
        FilterPtr src = MarkedSections(k.M, k.srcS, 100, 1, k.srcHead);
        FilterPtr dst = MarkedSections(k.M, k.dstS, -1, -1, 1);
        EXPECT_EQ(TOLV_CopyFilterMemories(dst.get(), src.get()), 1);
        const double *m = SOS(dst)->memory;
        const size_t row = k.row0.size();
        EXPECT_EQ(std::vector<double>(m, m + row), k.row0);
        EXPECT_EQ(std::vector<double>(m + 3 * row, m + 4 * row), k.row3);
        EXPECT_EQ(SOS(dst)->head, k.head);
    }
    // A destination without sections only restarts its head.
    FilterPtr empty = Biquads(2, {});
    Filtered(empty.get(), {1, 2});
    ASSERT_EQ(SOS(empty)->head, 3);
    EXPECT_EQ(TOLV_CopyFilterMemories(empty.get(), Biquads(2, kQ).get()), 1);
    EXPECT_EQ(SOS(empty)->head, 0);
}

TEST(FilterMemories, CopyRefusals)
{
    FilterPtr dst = Biquads(2, kQ);
    Filtered(dst.get(), Noise(2 * 5, 30));
    const std::vector<double> before(SOS(dst)->memory, SOS(dst)->memory + 16);
    const int head = SOS(dst)->head;
    FilterPtr typed = Biquads(2, kQ), direct = Coefs(2, kB, kA),
              mono = Biquads(1, kQ);
    typed->filterType = 1; // as a designed highpass
    EXPECT_EQ(TOLV_CopyFilterMemories(nullptr, typed.get()), 0);
    const _TOLV_FILTER *refused[] = {nullptr, direct.get(), mono.get(),
                                     typed.get()};
    for (const _TOLV_FILTER *src : refused)
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
    EXPECT_TRUE(log.entries.empty());

    _TOLV_FILTER *f = Biquads(1, kQ).release();
    void *state = f->stateData;
    f->stateData = nullptr;
    EXPECT_EQ(TOLV_DestroyFilter(f), 1);
    f = (_TOLV_FILTER *)calloc(1, sizeof(_TOLV_FILTER));
    f->filterFn = NotAFilter;
    f->stateData = state; // left allocated: freed below, once
    EXPECT_EQ(TOLV_DestroyFilter(f), 1);
    _DFIISOSstate *st = (_DFIISOSstate *)state;
    free(st->sections);
    free(st->memory);
    free(st);

    ASSERT_EQ(log.entries.size(), 2u);
    EXPECT_EQ(log.entries[0].text, "TOLV_DestroyFilter: Filter state is NULL!");
    EXPECT_EQ(log.entries[1].text, "TOLV_DestroyFilter: Invalid filter type!");
    for (const auto &e : log.entries) {
        EXPECT_EQ(e.level, KEEL_LEVEL_ERROR);
        EXPECT_EQ(e.code, -1);
    }
}

} // namespace
