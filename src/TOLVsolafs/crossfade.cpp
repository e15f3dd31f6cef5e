/* Cross-fade of a SOLAFS block: from the stretch that continues the previous
 * block's source into the input at the newly aligned position. */
#include "solafs.h"

/* Mixed precision: the fade-in product w * b is formed in f32 and widened,
 * the fade-out weight 1 - w and the sum are in double, the result is
 * narrowed once. */
static inline float _SolafsFade(float w, float a, float b)
{
    float faded = w * b;
    return (float)((double)a * (1.0 - (double)w) + (double)faded);
}

void _SolafsCrossFade(_TOLV_SOLAFS *s, int channel, float *samples,
                      int32_t first)
{
    /* The fade-in reads the very stretch that the search compared: the
     * overlapLength samples from the aligned position on. */
    int64_t from = (int64_t)s->similarityLength + s->alignedPos -
                   s->overlapLength - s->inputBase;
    bool inside = from >= 0 && from + s->overlapLength <= s->inputCapacity;
    float *out = samples + channel + (int64_t)first * s->channelStride;
    for (int32_t j = 0; j < s->overlapLength; j++) {
        float b =
            inside ? s->inputBuffer[from + j] : _SolafsInputAt(s, from + j);
        float v = _SolafsFade(s->crossFade[j], s->overlapBuffer[j], b);
        s->overlapBuffer[j] = v;
        out[(int64_t)j * s->channelStride] = v;
    }
}
