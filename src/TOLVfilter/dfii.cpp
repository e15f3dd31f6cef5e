/*
 * Direct form II run-time: one recursion of any order, every product and
 * every sum rounded to f32, no wider accumulator.
 *
 *   w[n] = x[n] - a1 w[n-1] - ... - aD w[n-D]
 *   y[n] = b1 w[n-1] + ... + bN w[n-N] + b0 w[n]
 *
 * The ring of w is never shifted: `head` moves down one row per frame, so
 * row (head + k) mod (order + 1) holds w[n-k].
 */
#include <string.h>

#include "TOLVfilter/filter.h"
#include "TOLVfilter/walk.h"

int _DFIIfilter(_TOLV_FILTER *filter, const float *input, float *output,
                uint32_t count, uint32_t start, uint32_t step)
{
    _DFIIstate *st = static_cast<_DFIIstate *>(filter->stateData);
    const int32_t M = filter->numChannels;
    const int32_t order = st->order;
    const int32_t numOrder = st->numOrder;
    const int32_t denOrder = st->denOrder;
    const int32_t m = numOrder < denOrder ? numOrder : denOrder;
    const int32_t R = (order + 1) * M;
    const float *num = st->numCoefs;
    const float *den = st->denCoefs;
    const float b0 = st->b0;
    float *mem = st->memory;
    int32_t head = st->head;

    _WalkFrames(count, start, step, M, [&](int32_t p) {
        // A copy from a longer ring can leave head past the last row; that
        // frame's w[n] then lives in the spare row allocated behind the ring
        // (TOLV_CreateFilterFromCoefs), where no later frame reads it.
        const int32_t cur = head <= order ? head * M : R;
        // Every input of the frame is taken before its output is cleared,
        // so input and output may be one buffer.
        for (int32_t c = 0; c < M; c++) {
            mem[cur + c] = input[p + c];
            output[p + c] = 0.0f;
        }
        for (int32_t c = 0; c < M; c++) {
            float w = mem[cur + c];
            float y = 0.0f;
            int32_t idx = cur + M >= R ? 0 : cur + M; // row of w[n-1]
            int32_t k = 0;
            for (; k < m; k++) {
                w -= den[k] * mem[idx + c];
                y += num[k] * mem[idx + c];
                idx = idx + M >= R ? 0 : idx + M;
            }
            if (numOrder > m) {
                for (; k < numOrder; k++) {
                    y += num[k] * mem[idx + c];
                    idx = idx + M >= R ? 0 : idx + M;
                }
            } else {
                for (; k < denOrder; k++) {
                    w -= den[k] * mem[idx + c];
                    idx = idx + M >= R ? 0 : idx + M;
                }
            }
            y += w * b0; // the term of w[n] comes last
            mem[cur + c] = w;
            output[p + c] = y;
        }
        head = head <= 0 ? order : head - 1;
    });
    st->head = head;
    return 1;
}

int _DFIIreset(_TOLV_FILTER *filter)
{
    _DFIIstate *st = static_cast<_DFIIstate *>(filter->stateData);
    memset(st->memory, 0,
           sizeof(float) * static_cast<size_t>(st->order + 1) *
               _RingChannels(filter->numChannels));
    return 1;
}

/* Copies ring rows as they lie, with no rotation to align the two rings in
 * time, and restarts the destination at the larger of its own last row and
 * the source's head. */
int _DFIIcopyMem(_TOLV_FILTER *dest, const _TOLV_FILTER *src)
{
    _DFIIstate *d = static_cast<_DFIIstate *>(dest->stateData);
    const _DFIIstate *s = static_cast<const _DFIIstate *>(src->stateData);
    const int64_t M = static_cast<int64_t>(_RingChannels(dest->numChannels));
    const int64_t rows = (d->order < s->order ? d->order : s->order) + 1;
    memmove(d->memory, s->memory,
            sizeof(float) * static_cast<size_t>(rows * M));
    if (d->order > s->order) {
        // Kept on purpose, pinned by FilterMemories.DirectFormCopies.
        // The rows the source lacks are not touched: the clear starts at
        // the byte offset of the first of them taken as a float index, and
        // so always ends past the ring. Only the part that falls inside the
        // ring is written; the rest is dropped.
        const int64_t ring = static_cast<int64_t>(d->order + 1) * M;
        const int64_t from = static_cast<int64_t>(s->order + 1) * M * 4;
        int64_t to = from + static_cast<int64_t>(d->order - s->order) * M;
        if (to > ring)
            to = ring;
        if (from < to)
            memset(d->memory + from, 0,
                   sizeof(float) * static_cast<size_t>(to - from));
    }
    d->head = d->order > s->head ? d->order : s->head;
    return 1;
}
