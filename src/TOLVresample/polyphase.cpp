/*
 * Streaming of the polyphase converter. Each output tick is the dot product
 * of one phase row with the last K input samples, summed in double in the
 * order of age, and rounded to f32.
 *
 * The frames of a block whose whole history lies inside the block read it
 * straight from the widened block, newest first. That is the same sequence
 * of products and sums as the walk over the circular line, so the results
 * are bit-identical; it frees the ticks from the line, and several ticks'
 * sums can then run side by side, each chain in its own order.
 */
#include <stdlib.h>

#include "resample.h"

enum { TICKS_SIDE_BY_SIDE = 4 };

/* One tick: the sum over t of newest[-t] * row[t], in the order of t. */
static inline float _HistoryTick(const double *newest, const double *row,
                                 int32_t taps)
{
    double sum = 0.0;
    for (int32_t t = 0; t < taps; t++)
        sum += newest[-t] * row[t];
    return static_cast<float>(sum);
}

/* Four ticks side by side, each chain in its own order of t, so that the
 * additions of one tick wait only on its own previous sum. */
static inline void _FourHistoryTicks(const double *const *newest,
                                     const double *const *rows, int32_t taps,
                                     float *out)
{
    const double *x0 = newest[0], *x1 = newest[1], *x2 = newest[2],
                 *x3 = newest[3];
    const double *r0 = rows[0], *r1 = rows[1], *r2 = rows[2], *r3 = rows[3];
    double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
    for (int32_t t = 0; t < taps; t++) {
        s0 += x0[-t] * r0[t];
        s1 += x1[-t] * r1[t];
        s2 += x2[-t] * r2[t];
        s3 += x3[-t] * r3[t];
    }
    out[0] = static_cast<float>(s0);
    out[1] = static_cast<float>(s1);
    out[2] = static_cast<float>(s2);
    out[3] = static_cast<float>(s3);
}

/* Frames [first, end) of the block, all with their history in the block. */
static int _BlockTicks(_TOLV_POLYPHASE *s, const double *x, int first, int end,
                       float *output)
{
    const double *newest[TICKS_SIDE_BY_SIDE];
    const double *rows[TICKS_SIDE_BY_SIDE];
    int pending = 0;
    int written = 0;
    for (int i = first; i < end; i++) {
        _FrameTicks(s, &s->phase, [&](int32_t phase) {
            newest[pending] = x + i;
            rows[pending] = s->phaseFilters[phase];
            if (++pending == TICKS_SIDE_BY_SIDE) {
                _FourHistoryTicks(newest, rows, s->tapsPerPhase,
                                  output + written);
                written += pending;
                pending = 0;
            }
            return true;
        });
        s->phase -= s->up;
    }
    for (int b = 0; b < pending; b++)
        output[written + b] = _HistoryTick(newest[b], rows[b], s->tapsPerPhase);
    return written + pending;
}

/* Brings the circular line to where pushing frames [first, end) one by one
 * would have left it: only the last K of them survive in it. */
static void _CatchUpLine(_TOLV_POLYPHASE *s, const double *x, int first,
                         int end)
{
    int32_t taps = s->tapsPerPhase;
    int64_t overwritten = static_cast<int64_t>(end - first) - taps;
    if (overwritten > 0) {
        s->writeIndex -= static_cast<int32_t>(overwritten % taps);
        if (s->writeIndex < 0)
            s->writeIndex += taps;
        first += static_cast<int>(overwritten);
    }
    for (int i = first; i < end; i++)
        _RingPush(s->delayLine, &s->writeIndex, taps, x[i]);
}

int _PolyphaseResample(_TOLV_POLYPHASE *s, const float *input, float *output,
                       int frames)
{
    _ResampleGrowStaging(&s->staging, &s->stagingCapacity, frames,
                         _PolyphaseLaneSlack(s, frames));
    if (frames <= 0)
        return 0;
    /* A flushed stream has ended; its negative phase names no row. */
    if (s->phase < 0)
        abort();
    double *x = s->staging;
    for (int i = 0; i < frames; i++)
        x[i] = input[i];

    /* Vector lanes take the whole block where the processor has them; the
     * loop below is the plain path, with the same bits. */
    int wide = _PolyphaseLaneTicks(s, x, frames, output);
    if (wide >= 0) {
        _CatchUpLine(s, x, 0, frames);
        return wide;
    }

    /* The first K - 1 frames still reach back into the line. */
    int32_t taps = s->tapsPerPhase;
    int head = frames < taps - 1 ? frames : taps - 1;
    int written = 0;
    for (int i = 0; i < head; i++) {
        _RingPush(s->delayLine, &s->writeIndex, taps, x[i]);
        _FrameTicks(s, &s->phase, [&](int32_t phase) {
            output[written++] = static_cast<float>(_RingTick<double>(
                s->delayLine, s->phaseFilters[phase], s->writeIndex, taps));
            return true;
        });
        s->phase -= s->up;
    }
    written += _BlockTicks(s, x, head, frames, output + written);
    _CatchUpLine(s, x, head, frames);
    return written;
}
