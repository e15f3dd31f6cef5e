/*
 * The exported filter operations. Constructors build one of the two forms;
 * run, reset and copy go through the object's routine pointers and never
 * look at the form.
 */
#include <stdlib.h>
#include <string.h>

#include "keel.h"
#include "TOLVfilter/filter.h"

/* Largest cascade accepted from a caller's records. */
static const uint32_t kMaxBiquads = 65536;

/* Reports a count over the limit. The message names the constructor for
 * the update too: both share the one limit. */
static bool TooManyBiquads(uint32_t numBiquads)
{
    if (numBiquads <= kMaxBiquads)
        return false;
    KEELDEBUG_Error(-1, "TOLV_CreateFilterFromBiquads: Too many biquads (%u)\n",
                    numBiquads);
    return true;
}

/* The object around a state record; only designed filters carry a type. */
static _TOLV_FILTER *NewFilter(_TOLV_FilterRunFn run, _TOLV_FilterResetFn reset,
                               _TOLV_FilterCopyFn copy, void *state,
                               int numChannels)
{
    _TOLV_FILTER *f =
        static_cast<_TOLV_FILTER *>(calloc(1, sizeof(_TOLV_FILTER)));
    f->filterFn = run;
    f->resetFn = reset;
    f->copyMemFn = copy;
    f->stateData = state;
    f->filterType = 0;
    f->numChannels = numChannels;
    return f;
}

/* Index range of a direct-form ring with its spare row. The run-time
 * indexes the ring by rows of numChannels values in signed 32 bits (also
 * when the count is negative and no channel is walked): a filter whose
 * range does not fit there is refused. */
static int64_t RingIndexRange(int32_t order, int numChannels)
{
    const int64_t channels = numChannels < 0
                                 ? -static_cast<int64_t>(numChannels)
                                 : static_cast<int64_t>(numChannels);
    return (static_cast<int64_t>(order) + 2) * channels;
}

extern "C" {

/* Coefficients are normalised by a[0] once here, each division in f64 and
 * the quotient rounded to f32. Nothing is validated: each length must be at
 * least 1 and a[0] non-zero. */
TOLV_API _TOLV_FILTER *TOLV_CreateFilterFromCoefs(int numChannels,
                                                  uint32_t numLength,
                                                  const double *numerator,
                                                  uint32_t denLength,
                                                  const double *denominator)
{
    _DFIIstate *st = (_DFIIstate *)calloc(1, sizeof(_DFIIstate));
    st->numOrder = (int32_t)(numLength - 1);
    st->denOrder = (int32_t)(denLength - 1);
    st->order = (uint32_t)st->numOrder > (uint32_t)st->denOrder ? st->numOrder
                                                                : st->denOrder;
    st->head = 0;
    // One spare row behind the ring: a copy from a filter of higher order
    // can set head past the last row, and the frames until head comes back
    // down keep their w[n] there. It is never read as history, so it needs
    // no defined contents.
    if (RingIndexRange(st->order, numChannels) > INT32_MAX) {
        free(st);
        return nullptr;
    }
    st->memory = (float *)calloc(
        (size_t)(st->order + 2) * _RingChannels(numChannels), sizeof(float));
    st->numCoefs = (float *)calloc((size_t)st->numOrder, sizeof(float));
    st->denCoefs = (float *)calloc((size_t)st->denOrder, sizeof(float));
    const double a0 = denominator[0];
    for (int32_t k = 1; k <= st->numOrder; k++)
        st->numCoefs[k - 1] = (float)(numerator[k] / a0);
    for (int32_t k = 1; k <= st->denOrder; k++)
        st->denCoefs[k - 1] = (float)(denominator[k] / a0);
    st->b0 = (float)(numerator[0] / a0);

    return NewFilter(_DFIIfilter, _DFIIreset, _DFIIcopyMem, st, numChannels);
}

TOLV_API _TOLV_FILTER *TOLV_CreateFilterFromBiquads(int numChannels,
                                                    uint32_t numBiquads,
                                                    const double *biquads)
{
    if (biquads == nullptr)
        return nullptr;
    if (TooManyBiquads(numBiquads))
        return nullptr;
    _DFIISOSstate *st = (_DFIISOSstate *)calloc(1, sizeof(_DFIISOSstate));
    st->sections = (double *)calloc(5 * (size_t)numBiquads, sizeof(double));
    memcpy(st->sections, biquads, sizeof(double) * 5 * numBiquads);
    st->memory = (double *)calloc(4 * _RingChannels(numChannels) * numBiquads,
                                  sizeof(double));
    if (st->memory == nullptr && numBiquads > 0 && numChannels > 0) {
        // A ring too large for the machine: refused, not run on null.
        free(st->sections);
        free(st);
        return nullptr;
    }
    st->allocatedSections = (int32_t)numBiquads;
    st->numSections = (int32_t)numBiquads;
    st->head = 0;

    return NewFilter(_DFIISOSfilter, _DFIISOSreset, _DFIISOScopyMem, st,
                     numChannels);
}

/* Replaces the coefficients of a running cascade and leaves the ring and
 * head alone: the next frame mixes old memory with new coefficients. */
TOLV_API int TOLV_UpdateFilterBiquads(_TOLV_FILTER *filter, uint32_t numBiquads,
                                      const double *biquads)
{
    if (biquads == nullptr)
        return 0;
    if (TooManyBiquads(numBiquads))
        return 0;
    // The caller owes a section filter. A null object or one of the direct
    // form is refused here rather than written through, as its state
    // cannot match the count.
    if (filter == nullptr || filter->filterFn != _DFIISOSfilter)
        return 0;
    _DFIISOSstate *st = (_DFIISOSstate *)filter->stateData;
    if (st == nullptr)
        return 0;
    if ((int32_t)numBiquads != st->numSections)
        return 0;
    memcpy(st->sections, biquads, sizeof(double) * 5 * numBiquads);
    return 1;
}

TOLV_API int TOLV_Filter(_TOLV_FILTER *filter, const float *input,
                         float *output, uint32_t count)
{
    if (filter == nullptr || input == nullptr || output == nullptr)
        return 0;
    return filter->filterFn(filter, input, output, count, 0,
                            (uint32_t)filter->numChannels);
}

TOLV_API int TOLV_FilterEx(_TOLV_FILTER *filter, const float *input,
                           float *output, uint32_t count, uint32_t start,
                           uint32_t step)
{
    if (filter == nullptr || input == nullptr || output == nullptr)
        return 0;
    return filter->filterFn(filter, input, output, count, start, step);
}

TOLV_API int TOLV_ResetFilter(_TOLV_FILTER *filter)
{
    if (filter == nullptr)
        return 0;
    return filter->resetFn(filter);
}

/* Filters of one form, channel count and type code may exchange memories
 * even when their orders or section counts differ; each form's copy
 * routine decides what that means. */
TOLV_API int TOLV_CopyFilterMemories(_TOLV_FILTER *dest,
                                     const _TOLV_FILTER *src)
{
    if (dest == nullptr || src == nullptr ||
        dest->copyMemFn != src->copyMemFn ||
        dest->numChannels != src->numChannels ||
        dest->filterType != src->filterType)
        return 0;
    return dest->copyMemFn(dest, src);
}

TOLV_API int TOLV_DestroyFilter(_TOLV_FILTER *filter)
{
    if (filter == nullptr)
        return 0;
    if (filter->stateData == nullptr) {
        KEELDEBUG_Error(-1, "TOLV_DestroyFilter: Filter state is NULL!");
    } else if (filter->filterFn == _DFIIfilter) {
        _DFIIstate *st = (_DFIIstate *)filter->stateData;
        free(st->memory);
        free(st->numCoefs);
        free(st->denCoefs);
        free(st);
    } else if (filter->filterFn == _DFIISOSfilter) {
        _DFIISOSstate *st = (_DFIISOSstate *)filter->stateData;
        free(st->sections);
        free(st->memory);
        free(st);
    } else {
        // An unknown form: its state cannot be taken apart, so it stays.
        KEELDEBUG_Error(-1, "TOLV_DestroyFilter: Invalid filter type!");
    }
    free(filter);
    return 1;
}

} // extern "C"
