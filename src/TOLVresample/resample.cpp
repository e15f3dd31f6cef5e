/*
 * The five exported calls of the converter, for every kind: each finds the
 * kind's operations and hands the state over. The small helpers of the
 * set-ups live here too.
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

void _ResampleGrowStaging(double **staging, int64_t *capacity, int64_t required,
                          int64_t slack)
{
    if (*staging != nullptr && required <= *capacity)
        return;
    /* A count of zero or below still yields a real block, so that the
     * pointer never reads as released. The block carries nothing between
     * calls; it is cleared so that no stage ever reads an indeterminate
     * value from it. */
    size_t entries = (required > 0 ? static_cast<size_t>(required) : 1) +
                     static_cast<size_t>(slack);
    *staging =
        static_cast<double *>(realloc(*staging, entries * sizeof(double)));
    memset(*staging, 0, entries * sizeof(double));
    *capacity = required;
}

/* Only this much of a configuration text is read; one byte more holds a
 * terminator, so a text that fills the copy still ends inside it. */
enum { CONFIG_BYTES = 256 };

/* Words of the "type" key and the kind each sets up. Any other word (the
 * usual one is "zoh") sets up the zero-order hold. */
static const struct {
    const char *word;
    const _TOLV_RESAMPLE_OPS *ops;
} kKindWords[] = {
    {"polyphase", &_PolyphaseOps}, /* windowed-sinc polyphase, the default */
    {"poly", &_PolyphaseOps},
};

/* Operations by the kind a set-up writes into the handle. */
static const _TOLV_RESAMPLE_OPS *const kKinds[] = {
    &_PolyphaseOps, /* TOLV_RESAMPLE_POLYPHASE */
    &_ZOHOps,       /* TOLV_RESAMPLE_ZOH */
};

const _TOLV_RESAMPLE_OPS *_ResampleOps(const _TOLV_RESAMPLE *handle)
{
    const uint32_t kinds = sizeof kKinds / sizeof kKinds[0];
    return handle->kind < kinds ? kKinds[handle->kind] : nullptr;
}

/* A handle left without a state by a refused order cannot be run, flushed
 * or destroyed: the process ends here rather than through a null access. */
static void *_State(const _TOLV_RESAMPLE *handle)
{
    if (handle->impl == nullptr)
        abort();
    return handle->impl;
}

static const _TOLV_RESAMPLE_OPS *_KindOfText(const char *text)
{
    char type[CONFIG_BYTES];
    KEELSTRING_GetStringValueFromString(text, "type", "polyphase", type,
                                        sizeof type);
    for (const auto &k : kKindWords)
        if (strcmp(type, k.word) == 0)
            return k.ops;
    return &_ZOHOps;
}

extern "C" TOLV_API _TOLV_RESAMPLE *
TOLV_ResampleInit(int inputRate, int outputRate, const char *config)
{
    if (inputRate < 1 || outputRate < 1) {
        KEELDEBUG_Error(-1, "TOLV_ResampleInit: Parametros invalidos");
        return nullptr;
    }
    _TOLV_RESAMPLE *handle =
        static_cast<_TOLV_RESAMPLE *>(calloc(1, sizeof(_TOLV_RESAMPLE)));
    char text[CONFIG_BYTES + 1];
    memset(text, 0, sizeof text);
    if (config != nullptr)
        strncpy(text, config, CONFIG_BYTES);
    KEELSTRING_Strlwr(text, 0);
    _KindOfText(text)->setUp(handle, inputRate, outputRate, text);
    return handle;
}

extern "C" TOLV_API int TOLV_Resample(_TOLV_RESAMPLE *resampler,
                                      const float *input, float *output,
                                      int frames)
{
    if (resampler == nullptr) {
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        return -1;
    }
    const _TOLV_RESAMPLE_OPS *ops = _ResampleOps(resampler);
    if (ops == nullptr) {
        /* A corrupted object: nothing of it can be trusted. */
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        exit(1);
    }
    return ops->run(_State(resampler), input, output, frames);
}

extern "C" TOLV_API int TOLV_ResampleFlushBufferSize(_TOLV_RESAMPLE *resampler)
{
    const _TOLV_RESAMPLE_OPS *ops =
        resampler == nullptr ? nullptr : _ResampleOps(resampler);
    if (ops == nullptr) {
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        return -1;
    }
    return ops->pending(_State(resampler));
}

extern "C" TOLV_API int TOLV_ResampleFlushBuffersEx(_TOLV_RESAMPLE *resampler,
                                                    float *output,
                                                    int maxFrames)
{
    const _TOLV_RESAMPLE_OPS *ops =
        resampler == nullptr ? nullptr : _ResampleOps(resampler);
    if (ops == nullptr) {
        KEELDEBUG_TerminalError(-1, "%s", __ResampleBadObject);
        exit(1);
    }
    return ops->flush(_State(resampler), output, maxFrames);
}

extern "C" TOLV_API int TOLV_ResampleDestroy(_TOLV_RESAMPLE *resampler)
{
    if (resampler == nullptr) {
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        return 0;
    }
    const _TOLV_RESAMPLE_OPS *ops = _ResampleOps(resampler);
    if (ops == nullptr) {
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        free(resampler);
        return 0;
    }
    ops->destroy(_State(resampler));
    free(resampler);
    return 1;
}
