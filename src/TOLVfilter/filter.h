/*
 * Private side of the filter object. A _TOLV_FILTER runs through three
 * routine pointers, so the exported run, reset and copy operations never
 * look at the form. Two forms exist:
 *
 *  - direct form II (_DFIIstate): one recursion of any order, all in f32;
 *  - a cascade of second-order sections (_DFIISOSstate): f64 state and
 *    arithmetic, the signal rounded to f32 between sections.
 *
 * The design stages build a section filter directly: a calloc'd
 * _DFIISOSstate with `sections` (5 doubles per section, records a1, a2, b0,
 * b1, b2) and `memory` (4 * numChannels * numSections doubles), both zeroed,
 * then a calloc'd _TOLV_FILTER whose three routines are _DFIISOSfilter,
 * _DFIISOSreset and _DFIISOScopyMem. TOLV_DestroyFilter releases both with
 * free().
 */
#ifndef TOLV_FILTER_H
#define TOLV_FILTER_H

#include <stddef.h>
#include <stdint.h>

#include "tolv.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Run: count, start and step are in float elements; the walk compares them
 * as signed 32-bit values. Reset and copy leave the position alone or set it
 * as each form defines. All three return 1. */
typedef int (*_TOLV_FilterRunFn)(_TOLV_FILTER *filter, const float *input,
                                 float *output, uint32_t count, uint32_t start,
                                 uint32_t step);
typedef int (*_TOLV_FilterResetFn)(_TOLV_FILTER *filter);
typedef int (*_TOLV_FilterCopyFn)(_TOLV_FILTER *dest, const _TOLV_FILTER *src);

struct _TOLV_FILTER {
    _TOLV_FilterRunFn filterFn; /* also the form's identity */
    _TOLV_FilterResetFn resetFn;
    _TOLV_FilterCopyFn copyMemFn;
    void *stateData;    /* _DFIIstate or _DFIISOSstate, owned */
    int32_t filterType; /* 0 low, 1 high, 2 band-pass, 3 band-reject */
    int32_t numChannels;
};

/* Direct form II. The ring holds the recursion variable w: row r, channel
 * c at r * numChannels + c; row (head + k) mod (order + 1) holds w[n-k]. */
typedef struct _DFIIstate {
    int32_t order;    /* max(numOrder, denOrder) */
    int32_t numOrder; /* numerator length - 1 */
    int32_t denOrder; /* denominator length - 1 */
    int32_t head;     /* ring row of the current frame */
    float *memory;    /* (order + 1) rows of numChannels, plus slack */
    float *numCoefs;  /* b[1..numOrder] / a[0] */
    float *denCoefs;  /* a[1..denOrder] / a[0] */
    float b0;         /* b[0] / a[0] */
} _DFIIstate;

/* Cascade of sections. Ring of 4 rows: row r, channel c, section s at
 * r * numChannels * numSections + c * numSections + s. */
typedef struct _DFIISOSstate {
    double *sections;          /* numSections records a1, a2, b0, b1, b2 */
    double *memory;            /* 4 * numChannels * numSections */
    int32_t allocatedSections; /* count given at creation from records */
    int32_t numSections;
    int32_t head; /* ring row of w[n], 0..3 */
} _DFIISOSstate;

/* Values per ring row. A negative channel count walks no channel, so its
 * rings are empty rather than sized from a wrapped count. */
static inline size_t _RingChannels(int32_t numChannels)
{
    return numChannels > 0 ? static_cast<size_t>(numChannels) : 0;
}

int _DFIIfilter(_TOLV_FILTER *filter, const float *input, float *output,
                uint32_t count, uint32_t start, uint32_t step);
int _DFIIreset(_TOLV_FILTER *filter);
int _DFIIcopyMem(_TOLV_FILTER *dest, const _TOLV_FILTER *src);

int _DFIISOSfilter(_TOLV_FILTER *filter, const float *input, float *output,
                   uint32_t count, uint32_t start, uint32_t step);
int _DFIISOSreset(_TOLV_FILTER *filter);
int _DFIISOScopyMem(_TOLV_FILTER *dest, const _TOLV_FILTER *src);

/* The cascade in vector lanes, over `frames` frames of a forward walk whose
 * buffers are one or apart; false (nothing done) where the lanes do not
 * apply. _DFIISOSLanes gives the width in use; _DFIISOSSetLanes forces one
 * the processor has (1: the plain walk; 0 or an unknown width: the widest). */
bool _DFIISOSLaneWalk(_DFIISOSstate *st, int32_t M, const float *input,
                      float *output, uint32_t start, uint32_t step,
                      int64_t frames);
int _DFIISOSLanes(void);
void _DFIISOSSetLanes(int lanes);

#ifdef __cplusplus
}
#endif

#endif
