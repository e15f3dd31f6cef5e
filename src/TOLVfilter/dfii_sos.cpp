/*
 * Cascade of direct form II sections. State and arithmetic are f64; the
 * signal is rounded to f32 between sections. Per section, with the record
 * a1, a2, b0, b1, b2 (a0 = 1):
 *
 *   t = (v - a1 w1) - a2 w2          stored as w[n]
 *   y = (b1 w1 + b0 t) + b2 w2       rounded to f32: the next section's v
 *
 * The ring has four rows so that moving `head` is a two-bit mask; rows
 * head, head + 1 and head + 2 hold w[n], w[n-1] and w[n-2], the fourth
 * lies idle.
 */
#include <stddef.h>
#include <string.h>

#include "TOLVfilter/filter.h"
#include "TOLVfilter/walk.h"

/* One section on one sample: stores w[n] and gives the next section's v. */
static inline float Section(const double *q, float v, const double *w1,
                            const double *w2, double *w0)
{
    const double d1 = *w1, d2 = *w2;
    const double t = (static_cast<double>(v) - q[0] * d1) - q[1] * d2;
    *w0 = t;
    return static_cast<float>((q[3] * d1 + q[2] * t) + q[4] * d2);
}

/* Room for the signals between sections in the skewed walk, per call. */
enum { kMaxCarry = 512 };

/* The number of frames of a walk that goes forward over disjoint frames
 * of buffers that are one or apart, and stays in the signed range; -1 for
 * any other walk. */
static int64_t ForwardFrames(const float *input, const float *output,
                             uint32_t count, uint32_t start, uint32_t step,
                             int32_t M)
{
    const int64_t last = static_cast<int32_t>(count - static_cast<uint32_t>(M));
    const int64_t first = static_cast<int32_t>(start);
    if (M < 1 || first < 0 || step < static_cast<uint32_t>(M) ||
        step > INT32_MAX)
        return -1;
    if (first > last)
        return 0;
    const int64_t frames = (last - first) / step + 1;
    if (first + frames * step > INT32_MAX)
        return -1;
    const uintptr_t in = (uintptr_t)input, out = (uintptr_t)output;
    const uintptr_t bytes = static_cast<uintptr_t>(last + M) * sizeof(float);
    if (in != out && in < out + bytes && out < in + bytes)
        return -1;
    return frames;
}

/* Sections run skewed by one frame each: in step i, section s takes frame
 * i - s, whose v section s - 1 made in step i - 1. The sections of a step
 * are then independent and overlap in the pipeline, while each one still
 * takes its frames in order with the same arithmetic, on its own column
 * of the ring. carry[c * (S + 1) + s] is section s's next input. */
static void SkewedWalk(_DFIISOSstate *st, int32_t M, const float *input,
                       float *output, uint32_t start, uint32_t step,
                       int64_t frames)
{
    const int32_t S = st->numSections;
    const ptrdiff_t rowLen = static_cast<ptrdiff_t>(M) * S, cs = S + 1;
    const double *sec = st->sections;
    double *mem = st->memory;
    float carry[kMaxCarry];
    // Row offsets by ring row, twice over, so rows k, k + 1, k + 2 need no
    // wrap and no multiply.
    ptrdiff_t rowAt[8];
    for (int k = 0; k < 8; k++)
        rowAt[k] = (k & 3) * rowLen;
    for (int64_t i = 0; i < frames + S - 1; i++) {
        if (i < frames) {
            const uint32_t p = start + static_cast<uint32_t>(i) * step;
            for (int32_t c = 0; c < M; c++)
                carry[c * cs] = input[p + c];
        }
        const int32_t hi = st->head - static_cast<int32_t>(i & 3);
        const int32_t lo =
            i < frames ? 0 : static_cast<int32_t>(i - frames + 1);
        const int32_t top = i < S - 1 ? static_cast<int32_t>(i) : S - 1;
        for (int32_t c = 0; c < M; c++) {
            // Downwards, so each carry is read before it is replaced.
            for (int32_t s = top; s >= lo; s--) {
                const ptrdiff_t *r = rowAt + ((hi + s) & 3);
                double *col = mem + static_cast<ptrdiff_t>(c) * S + s;
                carry[c * cs + s + 1] =
                    Section(sec + 5 * s, carry[c * cs + s], col + r[1],
                            col + r[2], col + r[0]);
            }
        }
        if (i >= S - 1) {
            const uint32_t p = start + static_cast<uint32_t>(i - S + 1) * step;
            for (int32_t c = 0; c < M; c++)
                output[p + c] = carry[c * cs + S];
        }
    }
    st->head = (st->head - static_cast<int32_t>(frames & 3)) & 3;
}

int _DFIISOSfilter(_TOLV_FILTER *filter, const float *input, float *output,
                   uint32_t count, uint32_t start, uint32_t step)
{
    _DFIISOSstate *st = static_cast<_DFIISOSstate *>(filter->stateData);
    const int32_t M = filter->numChannels;
    const int32_t S = st->numSections;
    if (S >= 2) {
        const int64_t frames =
            ForwardFrames(input, output, count, start, step, M);
        if (frames >= 0 &&
            _DFIISOSLaneWalk(st, M, input, output, start, step, frames))
            return 1;
        if (frames >= 0 && static_cast<int64_t>(M) * (S + 1) <= kMaxCarry) {
            SkewedWalk(st, M, input, output, start, step, frames);
            return 1;
        }
    }
    const ptrdiff_t rowLen = static_cast<ptrdiff_t>(M) * S;
    const double *sec = st->sections;
    double *mem = st->memory;
    int32_t head = st->head;

    _WalkFrames(count, start, step, M, [&](int32_t p) {
        double *w0 = mem + head * rowLen;
        const double *w1 = mem + ((head + 1) & 3) * rowLen;
        const double *w2 = mem + ((head + 2) & 3) * rowLen;
        // A whole channel passes through every section before the next.
        for (int32_t c = 0; c < M; c++) {
            float v = input[p + c];
            output[p + c] = v; // with no sections the filter is a copy
            const ptrdiff_t at = static_cast<ptrdiff_t>(c) * S;
            for (int32_t s = 0; s < S; s++)
                v = Section(sec + 5 * s, v, w1 + at + s, w2 + at + s,
                            w0 + at + s);
            output[p + c] = v;
        }
        head = (head - 1) & 3;
    });
    st->head = head;
    return 1;
}

int _DFIISOSreset(_TOLV_FILTER *filter)
{
    _DFIISOSstate *st = static_cast<_DFIISOSstate *>(filter->stateData);
    memset(st->memory, 0,
           sizeof(double) * 4 * _RingChannels(filter->numChannels) *
               st->numSections);
    return 1;
}

/* Matches sections from the first on: extra destination sections start
 * from rest, missing ones drop the source's last sections. */
int _DFIISOScopyMem(_TOLV_FILTER *dest, const _TOLV_FILTER *src)
{
    _DFIISOSstate *d = static_cast<_DFIISOSstate *>(dest->stateData);
    const _DFIISOSstate *s = static_cast<const _DFIISOSstate *>(src->stateData);
    const int64_t M = static_cast<int64_t>(_RingChannels(dest->numChannels));
    const int64_t dS = d->numSections, sS = s->numSections;
    const int64_t ring = 4 * M * dS;

    if (dS == sS && sS > 0) {
        memmove(d->memory, s->memory,
                sizeof(double) * static_cast<size_t>(ring));
        d->head = s->head;
        return 1;
    }
    if (dS == 0) {
        d->head = 0;
        return 1;
    }
    if (sS == 0) {
        memset(d->memory, 0, sizeof(double) * static_cast<size_t>(ring));
        d->head = 0;
        return 1;
    }
    const int64_t n = dS < sS ? dS : sS;
    for (int64_t r = 0; r < 4; r++) {
        for (int64_t c = 0; c < M; c++) {
            memmove(d->memory + r * dS * M + c * dS,
                    s->memory + r * sS * M + c * sS, sizeof(double) * n);
            if (dS > sS) {
                // Kept on purpose, pinned by FilterMemories.SectionCopies.
                // The clear steps over channels by numChannels, not by the
                // section count: for channel 0 it hits the added sections
                // exactly, for later channels it lands elsewhere in the
                // ring, and with more channels than sections it can run off
                // the end. Only the part inside the ring is written.
                const int64_t from = r * dS * M + sS + M * c;
                const int64_t to =
                    from + (dS - sS) < ring ? from + (dS - sS) : ring;
                if (from < to)
                    memset(d->memory + from, 0,
                           sizeof(double) * static_cast<size_t>(to - from));
            }
        }
    }
    d->head = s->head;
    return 1;
}
