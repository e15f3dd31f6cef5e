/*
 * Set-up of the zero-order hold: the stored low-pass for the pair of rates,
 * its memories and the hold grid.
 */
#include <stdlib.h>

#include "resample.h"

static void _ZOHSetUp(_TOLV_RESAMPLE *handle, int inputRate, int outputRate,
                      const char *)
{
    handle->kind = TOLV_RESAMPLE_ZOH;
    _TOLV_ZOH *s = static_cast<_TOLV_ZOH *>(calloc(1, sizeof(_TOLV_ZOH)));
    s->upsampling = inputRate > outputRate ? 0 : 1;

    /* Rows are unordered pairs: one filter serves both directions. */
    uint32_t higher =
        static_cast<uint32_t>(inputRate > outputRate ? inputRate : outputRate);
    uint32_t lower =
        static_cast<uint32_t>(inputRate > outputRate ? outputRate : inputRate);
    const _TOLV_FILTERSET_ROW *match = nullptr;
    for (int r = 0; r < FilterSetRows && match == nullptr; r++)
        if (FilterSet[r].higherRate == higher &&
            FilterSet[r].lowerRate == lower)
            match = &FilterSet[r];
    if (match == nullptr)
        KEELDEBUG_TerminalError(
            -1,
            "TOLV_ZOHResampleInit: Unsuported sample rate convertion: %d to %d",
            inputRate, outputRate);
    else if (match->a != nullptr) {
        s->aCoeffs = match->a;
        s->bCoeffs = match->b;
        s->coefficientCount = match->count;
    }

    /* One block serves both memories of the direct-form filter. */
    double *memory = static_cast<double *>(calloc(
        2 * static_cast<size_t>(s->coefficientCount) + 2, sizeof(double)));
    s->stateA = memory;
    s->stateB = memory + s->coefficientCount + 1;

    int32_t g = _ResampleGcd(inputRate, outputRate);
    s->up = outputRate / g;
    s->down = inputRate / g;
    s->stagingFactor = static_cast<int32_t>(s->up / s->down + 1);
    s->phase = 0;
    s->inputCount = 0;
    s->staging = nullptr;
    s->stagingCapacity = 0;
    handle->impl = s;
}

static int _ZOHRun(void *state, const float *input, float *output, int frames)
{
    return _ZOHResample(static_cast<_TOLV_ZOH *>(state), input, output, frames);
}

/* The hold keeps no frames back: a flush has nothing to give. */
static int _ZOHPending(const void *)
{
    return 0;
}

static int _ZOHFlush(void *, float *, int)
{
    return 0;
}

static void _ZOHDestroy(void *state)
{
    _TOLV_ZOH *s = static_cast<_TOLV_ZOH *>(state);
    free(s->stateA); /* stateB shares its block */
    if (s->staging != nullptr)
        free(s->staging);
    free(s);
}

const _TOLV_RESAMPLE_OPS _ZOHOps = {_ZOHSetUp, _ZOHRun, _ZOHPending, _ZOHFlush,
                                    _ZOHDestroy};
