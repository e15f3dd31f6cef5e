/* The stages of one output pass of a SOLAFS channel, shared by the exported
 * output call and by engines that drive several channels in step. */
#include <string.h>

#include "solafs.h"

void _SolafsReadInput(const _TOLV_SOLAFS *s, int64_t first, int32_t count,
                      float *dest)
{
    if (first >= 0 && first + count <= s->inputCapacity) {
        if (count > 0)
            memcpy(dest, s->inputBuffer + first, (size_t)count * sizeof(float));
        return;
    }
    for (int32_t j = 0; j < count; j++)
        dest[j] = _SolafsInputAt(s, first + j);
}

/* Takes over the queued change of speed once the analysis position p of the
 * previous block has reached the segment's start. The offset keeps the
 * analysis position continuous: old and new speed give the same p at the new
 * synthesis position. p is an input-axis position compared with a count
 * without the pad, as the bookkeeping has always done. */
static void _SolafsTakeSpeedChange(_TOLV_SOLAFS *s, int32_t p)
{
    if (s->pendingSegments <= 0 || s->nextSegment >= s->segmentCount)
        return;
    const _TOLV_SOLAFS_SEGMENT *seg = &s->segments[s->nextSegment];
    if (seg->segSpeed == s->speed || p < seg->segInputStart)
        return;
    s->nextSegment++;
    s->pendingSegments--;
    float y = (float)s->synthesisPos;
    float oldScaled = s->speed * y;
    float newScaled = seg->segSpeed * y;
    float shift = oldScaled - newScaled;
    s->analysisOffset = _SolafsTrunc(shift + (float)s->analysisOffset);
    s->speed = seg->segSpeed;
}

bool _SolafsPassReady(const _TOLV_SOLAFS *s, int32_t p)
{
    /* A pass needs the whole search range, two maxSkew, ahead of p. */
    return (int64_t)p < (int64_t)s->inputEnd - 2 * (int64_t)s->maxSkew;
}

int32_t _SolafsBeginPass(_TOLV_SOLAFS *s, int32_t p)
{
    /* The stretch that would continue the previous block's source. */
    _SolafsReadInput(
        s, (int64_t)s->similarityLength + s->alignedPos - s->inputBase,
        s->overlapLength, s->overlapBuffer);
    s->synthesisPos = _SolafsWrap((int64_t)s->synthesisPos + s->synthesisHop);
    _SolafsTakeSpeedChange(s, p);
    return _SolafsAnalysisPos(s);
}

bool _SolafsKeepAlignment(_TOLV_SOLAFS *s, int32_t p)
{
    /* Where the previous alignment would land by itself. lastSynthesisPos
     * holds the previous analysis position as well, so this is
     * skew + p - synthesisPos. */
    int64_t predicted = ((int64_t)p - s->lastAnalysisPos) - s->synthesisPos +
                        s->lastSynthesisPos + s->skew;
    predicted = _SolafsWrap(predicted);
    s->lastAnalysisPos = p;
    s->lastSynthesisPos = p;
    if (predicted < 0 || predicted > s->maxSkew)
        return false;
    s->skew = (int32_t)predicted;
    return true;
}

int32_t _SolafsFinishPass(_TOLV_SOLAFS *s, int32_t p, int channel,
                          float *samples, int32_t produced)
{
    s->alignedPos = _SolafsWrap((int64_t)p + s->skew);
    _SolafsCrossFade(s, channel, samples, produced);
    return _SolafsWrap((int64_t)produced + s->overlapLength);
}
