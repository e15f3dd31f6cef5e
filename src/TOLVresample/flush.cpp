/*
 * End of a polyphase stream: zeros are fed through the filter to get at the
 * last D output frames, the filter's delay. The running sum of a flushed
 * tick is held in f32, so a flushed frame is close to, but not bit-equal
 * to, what a block of zeros would give.
 */
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
            /* Leaving before the phase moves makes it negative below: the
             * stream ends with this flush. */
            _FrameTicks(s, &phase, [&](int32_t p) {
                output[count++] =
                    _RingTick<float>(s->delayLine, s->phaseFilters[p], w, taps);
                return count != limit;
            });
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
