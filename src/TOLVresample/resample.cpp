/*
 * Entry points shared by both kinds: the block call, the destructor, and
 * the small helpers of the two set-ups.
 */
#include <stdlib.h>
#include <string.h>

#include "resample.h"

const char __ResampleBadObject[] =
    "TOLV_Resample: Estrutura de dados nao foi inicializada corretamente!\n";

int32_t _ResampleGcd(int32_t a, int32_t b)
{
    while (b != 0) {
        int32_t r = a % b;
        a = b;
        b = r;
    }
    return a;
}

void _ResampleGrowStaging(double **staging, int64_t *capacity, int64_t required)
{
    if (*staging != NULL && required <= *capacity)
        return;
    /* A count of zero or below still yields a real block, so that the
     * pointer never reads as released. The block carries nothing between
     * calls; it is cleared so that no stage ever reads an indeterminate
     * value from it. */
    size_t entries = required > 0 ? (size_t)required : 1;
    *staging = (double *)realloc(*staging, entries * sizeof(double));
    memset(*staging, 0, entries * sizeof(double));
    *capacity = required;
}

/* A handle left without a state by a refused order cannot be run, flushed
 * or destroyed: the process ends here rather than through a null access. */
_TOLV_POLYPHASE *_PolyphaseState(const _TOLV_RESAMPLE *handle)
{
    if (handle->impl == NULL)
        abort();
    return (_TOLV_POLYPHASE *)handle->impl;
}

_TOLV_ZOH *_ZOHState(const _TOLV_RESAMPLE *handle)
{
    if (handle->impl == NULL)
        abort();
    return (_TOLV_ZOH *)handle->impl;
}

extern "C" TOLV_API int TOLV_Resample(_TOLV_RESAMPLE *resampler,
                                      const float *input, float *output,
                                      int frames)
{
    if (resampler == NULL) {
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        return -1;
    }
    switch (resampler->kind) {
    case TOLV_RESAMPLE_POLYPHASE:
        return _PolyphaseResample(_PolyphaseState(resampler), input, output,
                                  frames);
    case TOLV_RESAMPLE_ZOH:
        return _ZOHResample(_ZOHState(resampler), input, output, frames);
    default:
        /* A corrupted object: nothing of it can be trusted. */
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        exit(1);
    }
}

extern "C" TOLV_API int TOLV_ResampleDestroy(_TOLV_RESAMPLE *resampler)
{
    if (resampler == NULL) {
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        return 0;
    }
    if (resampler->kind == TOLV_RESAMPLE_POLYPHASE) {
        _TOLV_POLYPHASE *s = _PolyphaseState(resampler);
        if (s->staging != NULL)
            free(s->staging);
        for (int32_t p = 0; p < s->up; p++)
            free(s->phaseFilters[p]);
        free(s->phaseFilters);
        free(s->delayLine);
        free(s);
    } else if (resampler->kind == TOLV_RESAMPLE_ZOH) {
        _TOLV_ZOH *s = _ZOHState(resampler);
        free(s->stateA); /* stateB shares its block */
        if (s->staging != NULL)
            free(s->staging);
        free(s);
    } else {
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        free(resampler);
        return 0;
    }
    free(resampler);
    return 1;
}
