/*
 * The section cascade in vector lanes: one lane per section, the sections
 * skewed three frames apart so that each step's sections are independent
 * (see dfii_sos_lanes.inc). Channels go one after the other over the whole
 * block; each reads and writes only its own samples and its own columns of
 * the ring, so the order of channels changes nothing.
 *
 * Every lane keeps its section's order of operations, so the lanes give the
 * bits of the plain walk at every width.
 */
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "TOLVfilter/filter.h"
#include "lanes.h"

#pragma GCC diagnostic ignored "-Wpsabi"

namespace {
/* One channel's block: frame f at in[f step], its output at out[f step]. */
struct _SosJob {
    const double *coef; /* rows a1, a2, b0, b1, b2 of vectors * W lanes */
    double *t1, *t2;    /* the sections' w[n-1] and w[n-2], in and out */
    const float *in;
    float *out;
    int64_t step;
    int64_t frames;
    int32_t sections;
};
} // namespace

#define _SOS_LANES 2
namespace {
namespace lanes2 {
#include "TOLVfilter/dfii_sos_lanes.inc"
}
} // namespace
#undef _SOS_LANES

#if defined(__x86_64__)
_TOLV_TARGET_BEGIN("avx2")
#define _SOS_LANES 4
namespace {
namespace lanes4 {
#include "TOLVfilter/dfii_sos_lanes.inc"
}
} // namespace
#undef _SOS_LANES
_TOLV_TARGET_END
_TOLV_TARGET_BEGIN("avx512f")
#define _SOS_LANES 8
namespace {
namespace lanes8 {
#include "TOLVfilter/dfii_sos_lanes.inc"
}
} // namespace
#undef _SOS_LANES
_TOLV_TARGET_END
#endif

/* Up to this many vectors of sections stay in registers; longer cascades
 * take the plain walk. */
enum { kMaxVectors = 4, kMaxLanes = 8, kRoom = kMaxVectors * kMaxLanes };

static int _forcedLanes = 0;

static int _WidestLanes(void)
{
    return 2 << _TOLV_VectorLevel();
}

int _DFIISOSLanes(void)
{
    const int forced = __atomic_load_n(&_forcedLanes, __ATOMIC_RELAXED);
    return forced != 0 ? forced : _WidestLanes();
}

void _DFIISOSSetLanes(int lanes)
{
    const bool known = lanes == 1 || lanes == 2 || lanes == 4 || lanes == 8;
    __atomic_store_n(&_forcedLanes,
                     known && lanes <= _WidestLanes() ? lanes : 0,
                     __ATOMIC_RELAXED);
}

static void _RunJob(const _SosJob &job, int lanes, int vectors)
{
#if defined(__x86_64__)
    if (lanes == 8)
        return lanes8::_Run(job, vectors);
    if (lanes == 4)
        return lanes4::_Run(job, vectors);
#else
    (void)lanes;
#endif
    lanes2::_Run(job, vectors);
}

/* Records a1, a2, b0, b1, b2 of each section, turned into five rows of
 * lanes; lanes past the last section hold zeros. */
static void _CoefRows(const double *sec, int32_t S, int lanes, int vectors,
                      double *coef)
{
    const int row = lanes * vectors;
    memset(coef, 0, sizeof(double) * 5 * row);
    for (int32_t s = 0; s < S; s++)
        for (int r = 0; r < 5; r++)
            coef[r * row + s] = sec[5 * s + r];
}

bool _DFIISOSLaneWalk(_DFIISOSstate *st, int32_t M, const float *input,
                      float *output, uint32_t start, uint32_t step,
                      int64_t frames)
{
    const int lanes = _DFIISOSLanes();
    const int32_t S = st->numSections;
    const int vectors = (S + lanes - 1) / lanes;
    if (lanes == 1 || vectors > kMaxVectors)
        return false;
    double coef[5 * kRoom], t1[kRoom] = {}, t2[kRoom] = {};
    _CoefRows(st->sections, S, lanes, vectors, coef);
    const ptrdiff_t rowLen = static_cast<ptrdiff_t>(M) * S;
    const int32_t head = (st->head - static_cast<int32_t>(frames & 3)) & 3;
    for (int32_t c = 0; c < M; c++) {
        double *col = st->memory + static_cast<ptrdiff_t>(c) * S;
        double *w1 = col + ((st->head + 1) & 3) * rowLen;
        double *w2 = col + ((st->head + 2) & 3) * rowLen;
        memcpy(t1, w1, sizeof(double) * S);
        memcpy(t2, w2, sizeof(double) * S);
        const _SosJob job = {
            coef, t1,     t2, input + start + c, output + start + c,
            step, frames, S};
        _RunJob(job, lanes, vectors);
        // The ring as the plain walk leaves it: w[n-1] and w[n-2] in the
        // rows after the new head (the other two rows are never read).
        memcpy(col + ((head + 1) & 3) * rowLen, t1, sizeof(double) * S);
        memcpy(col + ((head + 2) & 3) * rowLen, t2, sizeof(double) * S);
    }
    st->head = head;
    return true;
}
