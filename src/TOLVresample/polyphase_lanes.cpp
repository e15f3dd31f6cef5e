/*
 * The polyphase ticks of a block in vector lanes.
 *
 * Tick n of a block sits at grid position a = phase + n M: its newest frame
 * is a / L and its row a mod L. So ticks n, n + L, n + 2L, ... share one
 * row, and their newest frames lie exactly M apart. One lane per such tick
 * makes every tap a single product of a vector of history by one broadcast
 * coefficient: lane j needs x[f + jM - t] at tap t, which the lane history
 * holds side by side at entry f - t. It lives in the work room after the
 * staging block.
 *
 * Each lane keeps its tick's order of sums, so the lanes give the bits of
 * the plain loop on every machine and at every width. The ticks of one row
 * are cut into runs as wide as the lanes, the last run partly filled (its
 * idle lanes read zeros and are never stored), and four
 * runs go through the kernel together so that four sums are in flight.
 */
#include <stdint.h>
#include <string.h>

#include "lanes.h"
#include "resample.h"

#pragma GCC diagnostic ignored "-Wpsabi"

namespace {
/* Lane j of a run is the tick whose newest sample is newest[j]; older
 * samples of that tick sit stride entries further back per tap. */
struct _LaneJob {
    const double *newest;
    const double *row;
    float *out; /* lane j's output is out[j L] */
    int lanes;  /* lanes in use, from the first */
};
} // namespace

#define _TICK_LANES 2
namespace {
namespace lanes2 {
#include "TOLVresample/polyphase_lanes.inc"
}
} // namespace
#undef _TICK_LANES

#if defined(__x86_64__)
_TOLV_TARGET_BEGIN("avx2")
#define _TICK_LANES 4
namespace {
namespace lanes4 {
#include "TOLVresample/polyphase_lanes.inc"
}
} // namespace
#undef _TICK_LANES
_TOLV_TARGET_END
_TOLV_TARGET_BEGIN("avx512f")
#define _TICK_LANES 8
namespace {
namespace lanes8 {
#include "TOLVresample/polyphase_lanes.inc"
}
} // namespace
#undef _TICK_LANES
_TOLV_TARGET_END
#endif

static int _forcedLanes = 0;

static int _WidestLanes(void)
{
    return 2 << _TOLV_VectorLevel();
}

int _PolyphaseLanes(void)
{
    int forced = __atomic_load_n(&_forcedLanes, __ATOMIC_RELAXED);
    return forced != 0 ? forced : _WidestLanes();
}

void _PolyphaseSetLanes(int lanes)
{
    bool known = lanes == 1 || lanes == 2 || lanes == 4 || lanes == 8;
    __atomic_store_n(&_forcedLanes,
                     known && lanes <= _WidestLanes() ? lanes : 0,
                     __ATOMIC_RELAXED);
}

namespace {
/* Runs waiting for the kernel, four at a time. */
struct _Batch {
    _LaneJob pending[4];
    int count;
    int lanes;
    int32_t taps;
    int64_t stride;
    int64_t up;
};
} // namespace

/* Runs the waiting jobs; the empty places repeat the first. */
static void _RunBatch(_Batch &b)
{
    for (int i = b.count; i < 4; i++)
        b.pending[i] = b.pending[0];
#if defined(__x86_64__)
    if (b.lanes == 8)
        lanes8::_FourJobs(b.pending, b.count, b.taps, b.stride, b.up);
    else if (b.lanes == 4)
        lanes4::_FourJobs(b.pending, b.count, b.taps, b.stride, b.up);
    else
#endif
        lanes2::_FourJobs(b.pending, b.count, b.taps, b.stride, b.up);
    b.count = 0;
}

static void _FillLaneEntries(const double *samples, int64_t k0, int64_t k1,
                             int64_t step, int lanes, double *h)
{
#if defined(__x86_64__)
    if (lanes == 8)
        return lanes8::_FillEntries(samples, k0, k1, step, h);
    if (lanes == 4)
        return lanes4::_FillEntries(samples, k0, k1, step, h);
#else
    (void)lanes;
#endif
    lanes2::_FillEntries(samples, k0, k1, step, h);
}

/* Blocks are taken a segment at a time, so that the lane history stays in
 * cache and its size is bounded; a segment holds enough frames for several
 * full runs of every row. Beyond this step between ticks of one row the
 * history would be mostly unread, and the plain loop takes the block. */
static const int64_t SEGMENT_FRAMES = 4096;
static const int64_t WIDEST_STEP = 2048;

static int64_t _SegmentFrames(const _TOLV_POLYPHASE *s)
{
    const int64_t rowStep = 32 * static_cast<int64_t>(s->down);
    return rowStep > SEGMENT_FRAMES ? rowStep : SEGMENT_FRAMES;
}

/* Work room after the staging block: one segment's samples with the K - 1
 * before them and the zeros the last entries of the history read, then
 * the history, on a 64-byte boundary so that no load of an entry
 * straddles two cache lines, for the widest lanes the processor has. */
int64_t _PolyphaseLaneSlack(const _TOLV_POLYPHASE *s, int64_t frames)
{
    if (frames <= 0 || s->down > WIDEST_STEP)
        return 0;
    const int64_t segment = _SegmentFrames(s);
    const int64_t span =
        (frames < segment ? frames : segment) + s->tapsPerPhase - 1;
    const int64_t lanes = _WidestLanes();
    return span + (lanes - 1) * s->down + 8 + span * lanes;
}

static double *_CacheLineUp(double *p)
{
    const uintptr_t at = reinterpret_cast<uintptr_t>(p);
    return reinterpret_cast<double *>((at + 63) & ~static_cast<uintptr_t>(63));
}

/* Samples [a - (K - 1), b) of the stream in time order, then `zeros`
 * zeros: those before the block come from the line, where the sample of
 * age g sits at (writeIndex + g) mod K. */
static void _FillSamples(const _TOLV_POLYPHASE *s, const double *x, int64_t a,
                         int64_t b, int64_t zeros, double *samples)
{
    const int64_t taps = s->tapsPerPhase;
    int64_t i = a - (taps - 1);
    for (; i < 0; i++)
        *samples++ = s->delayLine[(s->writeIndex - 1 - i) % taps];
    memcpy(samples, x + i, static_cast<size_t>(b - i) * sizeof(double));
    memset(samples + (b - i), 0, static_cast<size_t>(zeros) * sizeof(double));
}

static void _AddJob(_Batch &b, const _LaneJob &job)
{
    b.pending[b.count++] = job;
    if (b.count == 4)
        _RunBatch(b);
}

/* Ticks of frames [a, b): their count T, of which the first still to be
 * skipped are dropped. Kept tick r + nL (r < L) is lane n mod W of run
 * n / W of row r's ticks. Runs go out in order of time, every row's k-th
 * run before any (k + 1)-th, so that the history they read is the few
 * kilobytes around one place and stays in the first-level cache. */
static int64_t _SegmentTicks(_TOLV_POLYPHASE *s, const double *x, int64_t a,
                             int64_t b, int lanes, float *out)
{
    const int64_t L = s->up, M = s->down, p0 = s->phase;
    const int64_t span = (b - a) * L;
    const int64_t ticks = p0 < span ? (span - p0 + M - 1) / M : 0;
    const int64_t skipped = ticks < s->skipRemaining ? ticks : s->skipRemaining;
    const int64_t kept = ticks - skipped;
    s->phase = static_cast<int32_t>(p0 + ticks * M - span);
    s->skipRemaining -= static_cast<int32_t>(skipped);
    const int64_t older = s->tapsPerPhase - 1;
    const int64_t frames = b - a + older;
    double *samples = s->staging + s->stagingCapacity;
    const int64_t zeros = (lanes - 1) * M;
    _FillSamples(s, x, a, b, zeros, samples);
    double *history = _CacheLineUp(samples + frames + zeros);
    /* The runs of one pass over the rows read entries [e - (K - 1), e + M]
     * and the next pass starts W M entries on. When those stretches do not
     * meet, only they are filled, each just before its pass; otherwise the
     * whole history, each entry from the one M before. */
    const bool sparse = (lanes - 1) * M > older;
    if (!sparse)
        _FillLaneEntries(samples, 0, frames, M, lanes, history);
    _Batch batch = {};
    batch.lanes = lanes;
    batch.taps = s->tapsPerPhase;
    batch.stride = lanes;
    batch.up = L;
    /* Kept tick 0 sits at grid position p0 + skipped M; each next tick is M
     * further, M / L frames and M mod L rows on. */
    const int64_t start = p0 + skipped * M;
    const int64_t rowStep = M % L, frameStep = M / L;
    for (int64_t first = 0; first < kept; first += lanes * L) {
        int64_t entry = start / L + older + (first / L) * M;
        int64_t row = start % L;
        if (sparse)
            _FillLaneEntries(samples, entry - older,
                             entry + M + 1 < frames ? entry + M + 1 : frames, M,
                             lanes, history);
        for (int64_t tick = first; tick < first + L && tick < kept; tick++) {
            const int64_t count = (kept - 1 - tick) / L + 1;
            _AddJob(batch,
                    _LaneJob{history + entry * lanes, s->phaseFilters[row],
                             out + tick,
                             count < lanes ? static_cast<int>(count) : lanes});
            entry += frameStep;
            row += rowStep;
            if (row >= L) {
                row -= L;
                entry++;
            }
        }
    }
    if (batch.count != 0)
        _RunBatch(batch);
    return kept;
}

int _PolyphaseLaneTicks(_TOLV_POLYPHASE *s, const double *x, int frames,
                        float *output)
{
    const int lanes = _PolyphaseLanes();
    if (lanes < 2 || s->down > WIDEST_STEP || frames <= 0)
        return -1;
    const int64_t segment = _SegmentFrames(s);
    int64_t written = 0;
    for (int64_t a = 0; a < frames; a += segment) {
        const int64_t b = frames - a < segment ? frames : a + segment;
        written += _SegmentTicks(s, x, a, b, lanes, output + written);
    }
    return static_cast<int>(written);
}
