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

int _DFIISOSfilter(_TOLV_FILTER *filter, const float *input, float *output,
                   uint32_t count, uint32_t start, uint32_t step)
{
    _DFIISOSstate *st = (_DFIISOSstate *)filter->stateData;
    const int32_t M = filter->numChannels;
    const int32_t S = st->numSections;
    const ptrdiff_t rowLen = (ptrdiff_t)M * S;
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
            const ptrdiff_t at = (ptrdiff_t)c * S;
            for (int32_t s = 0; s < S; s++) {
                const double *q = sec + 5 * s;
                const double x = v, d1 = w1[at + s], d2 = w2[at + s];
                const double t = (x - q[0] * d1) - q[1] * d2;
                w0[at + s] = t;
                v = (float)((q[3] * d1 + q[2] * t) + q[4] * d2);
            }
            output[p + c] = v;
        }
        head = (head - 1) & 3;
    });
    st->head = head;
    return 1;
}

int _DFIISOSreset(_TOLV_FILTER *filter)
{
    _DFIISOSstate *st = (_DFIISOSstate *)filter->stateData;
    memset(st->memory, 0,
           sizeof(double) * 4 * (size_t)filter->numChannels * st->numSections);
    return 1;
}

/* Matches sections from the first on: extra destination sections start
 * from rest, missing ones drop the source's last sections. */
int _DFIISOScopyMem(_TOLV_FILTER *dest, const _TOLV_FILTER *src)
{
    _DFIISOSstate *d = (_DFIISOSstate *)dest->stateData;
    const _DFIISOSstate *s = (const _DFIISOSstate *)src->stateData;
    const int64_t M = dest->numChannels;
    const int64_t dS = d->numSections, sS = s->numSections;
    const int64_t ring = 4 * M * dS;

    if (dS == sS && sS > 0) {
        memmove(d->memory, s->memory, sizeof(double) * (size_t)ring);
        d->head = s->head;
        return 1;
    }
    if (dS == 0) {
        d->head = 0;
        return 1;
    }
    if (sS == 0) {
        memset(d->memory, 0, sizeof(double) * (size_t)ring);
        d->head = 0;
        return 1;
    }
    const int64_t n = dS < sS ? dS : sS;
    for (int64_t r = 0; r < 4; r++) {
        for (int64_t c = 0; c < M; c++) {
            memmove(d->memory + r * dS * M + c * dS,
                    s->memory + r * sS * M + c * sS, sizeof(double) * n);
            if (dS > sS) {
                // The clear steps over channels by numChannels, not by the
                // section count: for channel 0 it hits the added sections
                // exactly, for later channels it lands elsewhere in the
                // ring, and with more channels than sections it can run off
                // the end. Only the part inside the ring is written.
                const int64_t from = r * dS * M + sS + M * c;
                const int64_t to = from + (dS - sS) < ring ? from + (dS - sS)
                                                           : ring;
                if (from < to)
                    memset(d->memory + from, 0,
                           sizeof(double) * (size_t)(to - from));
            }
        }
    }
    d->head = s->head;
    return 1;
}
