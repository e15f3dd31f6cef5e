/*
 * Streaming of the zero-order hold. Each input value is repeated (or
 * dropped) on the grid of L and M, and the stored low-pass cleans the
 * result at the higher rate: before the hold when converting down, after it
 * when converting up.
 */
#include "resample.h"

int _ZOHResample(_TOLV_ZOH *s, const float *input, float *output, int frames)
{
    /* Bound of what one block can give, at most L / M + 1 frames per frame. */
    _ResampleGrowStaging(&s->staging, &s->stagingCapacity,
                         static_cast<int64_t>(s->stagingFactor) * frames, 0);
    if (!s->upsampling) {
        FilterBlockFloat(s->aCoeffs, s->bCoeffs, s->coefficientCount, s->stateA,
                         s->stateB, input, s->staging, frames);
        if (frames <= 0)
            return 0;
    } else {
        if (frames <= 0) {
            // Kept on purpose: an empty block still calls the filter, with a
            // count of 0 (pinned by ResampleTest.HoldFollowsTheGridUnderAnySplit).
            FilterBlockFloat(s->aCoeffs, s->bCoeffs, s->coefficientCount,
                             s->stateA, s->stateB, output, s->staging, 0);
            return 0;
        }
        for (int i = 0; i < frames; i++)
            s->staging[i] = input[i];
    }

    int written = 0;
    for (int i = 0; i < frames; i++) {
        float value = static_cast<float>(s->staging[i]);
        for (; static_cast<uint64_t>(s->phase) < static_cast<uint64_t>(s->up);
             s->phase = static_cast<uint32_t>(s->phase + s->down))
            output[written++] = value;
        s->phase = static_cast<uint32_t>(s->phase - s->up);
        s->inputCount++;
    }

    if (s->upsampling) {
        FilterBlockFloat(s->aCoeffs, s->bCoeffs, s->coefficientCount, s->stateA,
                         s->stateB, output, s->staging, written);
        for (int i = 0; i < written; i++)
            output[i] = static_cast<float>(s->staging[i]);
    }
    return written;
}
