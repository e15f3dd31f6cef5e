/*
 * Set-up of the zero-order hold: the stored low-pass for the pair of rates,
 * its memories and the hold grid.
 */
#include <stdlib.h>

#include "resample.h"

void _ZOHResampleInit(_TOLV_RESAMPLE *handle, int inputRate, int outputRate)
{
    _TOLV_ZOH *s = (_TOLV_ZOH *)calloc(1, sizeof(_TOLV_ZOH));
    s->upsampling = inputRate > outputRate ? 0 : 1;

    /* Rows are unordered pairs: one filter serves both directions. */
    uint32_t higher =
        (uint32_t)(inputRate > outputRate ? inputRate : outputRate);
    uint32_t lower =
        (uint32_t)(inputRate > outputRate ? outputRate : inputRate);
    const _TOLV_FILTERSET_ROW *match = NULL;
    for (int r = 0; r < FilterSetRows && match == NULL; r++)
        if (FilterSet[r].higherRate == higher &&
            FilterSet[r].lowerRate == lower)
            match = &FilterSet[r];
    if (match == NULL)
        KEELDEBUG_TerminalError(
            -1,
            "TOLV_ZOHResampleInit: Unsuported sample rate convertion: %d to %d",
            inputRate, outputRate);
    else if (match->a != NULL) {
        s->aCoeffs = match->a;
        s->bCoeffs = match->b;
        s->coefficientCount = match->count;
    }

    /* One block serves both memories of the direct-form filter. */
    double *memory =
        (double *)calloc(2 * (size_t)s->coefficientCount + 2, sizeof(double));
    s->stateA = memory;
    s->stateB = memory + s->coefficientCount + 1;

    int32_t g = _ResampleGcd(inputRate, outputRate);
    s->up = outputRate / g;
    s->down = inputRate / g;
    s->stagingFactor = (int32_t)(s->up / s->down + 1);
    s->phase = 0;
    s->inputCount = 0;
    s->staging = NULL;
    s->stagingCapacity = 0;
    handle->impl = s;
}
