/*
 * End of a polyphase stream: zeros are fed through the filter to get at the
 * last D output frames, the filter's delay. The running sum of a flushed
 * tick is held in f32, so a flushed frame is close to, but not bit-equal
 * to, what a block of zeros would give.
 */
#include <stdlib.h>

#include "resample.h"

int _PolyphaseFlush(_TOLV_POLYPHASE *s, float *output, int maxFrames)
{
    int32_t remaining = s->flushRemaining;
    int32_t limit = remaining;
    if (maxFrames > 0 && maxFrames < remaining)
        limit = maxFrames;
    int32_t count = 0;

    if (limit > 0 && s->phase >= 0) {
        int32_t taps = s->tapsPerPhase;
        int32_t w = s->writeIndex;
        int32_t phase = s->phase;
        for (;;) {
            _RingPush(s->delayLine, &w, taps, 0.0);
            for (; phase < s->up; phase += s->down) {
                if (s->skipRemaining != 0) {
                    s->skipRemaining--;
                    continue;
                }
                output[count++] = _RingTick<float>(
                    s->delayLine, s->phaseFilters[phase], w, taps);
                /* Leaving before the phase moves makes it negative below:
                 * the stream ends with this flush. */
                if (count == limit)
                    break;
            }
            phase -= s->up;
            if (phase < 0 || count >= limit)
                break;
        }
        s->writeIndex = w;
        s->phase = phase;
    }
    s->flushRemaining = remaining - count > 0 ? remaining - count : 0;
    return count;
}

extern "C" TOLV_API int TOLV_ResampleFlushBufferSize(_TOLV_RESAMPLE *resampler)
{
    if (resampler == NULL || (resampler->kind != TOLV_RESAMPLE_POLYPHASE &&
                              resampler->kind != TOLV_RESAMPLE_ZOH)) {
        KEELDEBUG_Error(-1, "%s", __ResampleBadObject);
        return -1;
    }
    if (resampler->kind == TOLV_RESAMPLE_ZOH)
        return 0;
    return _PolyphaseState(resampler)->flushRemaining;
}

extern "C" TOLV_API int TOLV_ResampleFlushBuffersEx(_TOLV_RESAMPLE *resampler,
                                                    float *output,
                                                    int maxFrames)
{
    if (resampler == NULL || (resampler->kind != TOLV_RESAMPLE_POLYPHASE &&
                              resampler->kind != TOLV_RESAMPLE_ZOH)) {
        KEELDEBUG_TerminalError(-1, "%s", __ResampleBadObject);
        exit(1);
    }
    /* The hold keeps no frames back. */
    if (resampler->kind == TOLV_RESAMPLE_ZOH)
        return 0;
    return _PolyphaseFlush(_PolyphaseState(resampler), output, maxFrames);
}
