/* Input side of a SOLAFS channel: drop what the analysis has left behind,
 * accept what fits into the window, and book the frames into a speed segment. */
#include <string.h>

#include "solafs.h"

/* Shifts the window so that it keeps similarityLength positions behind the
 * analysis position p. */
static void _SolafsDiscard(_TOLV_SOLAFS *s, int32_t p)
{
    int64_t discard = (int64_t)p - s->inputBase - s->similarityLength;
    if (discard <= 0)
        return;
    int64_t keep = (int64_t)s->inputEnd - s->inputBase - discard;
    /* The valid part never exceeds the window; the bound only matters for
     * objects whose pad alone is longer than their window. */
    if (keep > s->inputCapacity - discard)
        keep = s->inputCapacity - discard;
    if (keep > 0)
        memmove(s->inputBuffer, s->inputBuffer + discard,
                (size_t)keep * sizeof(float));
    s->inputBase = _SolafsWrap(s->inputBase + discard);
}

/* Picks the segment that the accepted frames belong to, with inputEnd still
 * at its old value. */
static _TOLV_SOLAFS_SEGMENT *_SolafsChooseSegment(_TOLV_SOLAFS *s, float speed)
{
    _TOLV_SOLAFS_SEGMENT *seg;
    if (s->inputEnd == s->similarityLength) {
        /* Nothing accepted yet: the speed holds at once for the synthesis
         * side too, and every call until the first frame records it anew. */
        s->speed = speed;
        if (s->segmentCount < SOLAFS_MAX_SEGMENTS) {
            seg = &s->segments[s->segmentCount];
            s->segmentCount++;
            s->nextSegment++;
        } else {
            seg = &s->segments[SOLAFS_MAX_SEGMENTS - 1];
        }
        seg->segInputStart = 0;
        seg->segInputEnd = 0;
        seg->segOutputEnd = 0;
        seg->segSpeed = speed;
        return seg;
    }
    /* The first call always writes a segment, so segmentCount >= 1 here. */
    seg = &s->segments[s->segmentCount - 1];
    if (speed == seg->segSpeed || s->segmentCount == SOLAFS_MAX_SEGMENTS)
        return seg;
    /* A change of speed: queued until the analysis position reaches it. */
    _TOLV_SOLAFS_SEGMENT *next = &s->segments[s->segmentCount];
    next->segInputStart =
        _SolafsWrap((int64_t)s->inputEnd - s->similarityLength);
    next->segInputEnd = next->segInputStart;
    next->segOutputEnd = seg->segOutputEnd;
    next->segSpeed = speed;
    s->segmentCount++;
    s->pendingSegments++;
    return next;
}

extern "C" TOLV_API int TOLV_SolafsInputData(_TOLV_SOLAFS *solafs, int channel,
                                             const float *samples, int frames,
                                             float speed)
{
    _TOLV_SOLAFS *s = solafs;
    _SolafsDiscard(s, _SolafsAnalysisPos(s));

    int64_t room = (int64_t)s->inputBase - s->inputEnd + s->inputCapacity;
    int32_t accepted = frames < room ? frames : (int32_t)room;
    /* After a discard beyond inputEnd the window starts ahead of the new
     * frames: those that land before it are counted but not kept. */
    int64_t at = (int64_t)s->inputEnd - s->inputBase;
    for (int64_t j = at < 0 ? -at : 0; j < accepted; j++)
        s->inputBuffer[at + j] = samples[channel + j * s->channelStride];

    _TOLV_SOLAFS_SEGMENT *seg = _SolafsChooseSegment(s, speed);
    seg->segInputEnd = _SolafsWrap((int64_t)seg->segInputEnd + accepted);
    /* The fraction of output frames is cut at every call; the segment's end
     * therefore depends on how the stream was cut into calls. The rate is the
     * argument, except for a change refused by a full table, whose frames
     * play at the last segment's speed. */
    float rate = speed == seg->segSpeed ? speed : seg->segSpeed;
    float output = (float)accepted / rate + (float)seg->segOutputEnd;
    seg->segOutputEnd = _SolafsTrunc(output);
    s->inputEnd = _SolafsWrap((int64_t)s->inputEnd + accepted);
    return accepted;
}
