/*
 * Private side of the SOLAFS time-scale modifier: synchronised overlap-add
 * with fixed synthesis. One object serves one channel of an interleaved
 * stream. Output comes in blocks of overlapLength frames spaced synthesisHop
 * apart; for each block the engine looks near the analysis position that the
 * speed factor asks for, picks the input stretch that continues the output
 * best, and cross-fades from the old stretch to the chosen one.
 *
 * Axes. Every position and length is a count of frames of the one channel.
 * Position q of the input axis holds accepted sample q - similarityLength:
 * the first similarityLength positions are a lead-in pad that reads as
 * silence because the descriptor hands out cleared memory. inputBuffer is a
 * sliding linear window (not a ring): inputBuffer[j] holds position
 * inputBase + j, and positions inputBase .. inputEnd - 1 are valid.
 *
 * Memory safety. Arguments are not validated, yet no call touches memory
 * outside the object's own arrays:
 *  - reads of inputBuffer that fall outside its inputCapacity entries (very
 *    high, zero, negative or NaN speeds move the analysis position out of the
 *    window) read silence; reads beyond inputEnd but inside the window read
 *    whatever the window still holds there;
 *  - samples offered while the window lies wholly ahead of inputEnd (after a
 *    discard larger than the window) are counted as accepted but the part that
 *    falls before inputBuffer[0] is dropped;
 *  - the speed table holds SOLAFS_MAX_SEGMENTS segments, the first speed and
 *    255 changes. A change of speed that finds the table full is not taken:
 *    its frames are counted into the last segment, which keeps its speed, so
 *    the stream goes on at the last recorded speed. Before the first accepted
 *    frame, when each call records its speed afresh, a full table has its
 *    last entry rewritten instead;
 *  - a cursor past the last written segment is translated with the last
 *    segment, and a cursor inside segment 0 takes 0 as that segment's base;
 *  - the window holds at most 2^30 - 1 floats, what one request to the
 *    descriptor can hold; a higher rate gets that much.
 * A frame length W of 0 (frameMs * sampleRate / 1000 below 8) or below is the
 * one sequence not covered: blocks have no length, and an output call with a
 * capacity of 0 or more never returns once a frame has been accepted.
 */
#ifndef TOLV_SOLAFS_H
#define TOLV_SOLAFS_H

#include <stdint.h>

#include "keel.h"
#include "lanes.h"
#include "tolv.h"

#define SOLAFS_MAX_SEGMENTS 256

/* A stretch of the stream played at one speed. Input counts exclude the
 * lead-in pad; segOutputEnd is cumulated over all segments. */
typedef struct _TOLV_SOLAFS_SEGMENT {
    int32_t segInputStart;
    int32_t segInputEnd; /* kept up, read by nobody */
    int32_t segOutputEnd;
    float segSpeed;
} _TOLV_SOLAFS_SEGMENT;

struct _TOLV_SOLAFS {
    KEEL_MEMDESCR memDescr;
    float speed;
    int32_t frameLength;
    int32_t similarityLength;
    int32_t overlapLength;
    int32_t maxSkew;
    int32_t correlationStep;
    int32_t skewStep;
    int32_t synthesisHop;
    int32_t lastAnalysisPos;
    int32_t lastSynthesisPos;
    int32_t skew;
    int32_t inputCapacity;
    int32_t inputEnd;
    int32_t synthesisPos;
    int32_t analysisOffset;
    int32_t alignedPos;
    int32_t inputBase;
    int32_t channelStride;
    float *crossFade;
    float *similarityTemplate;
    int32_t *similarityIndex;
    float *inputBuffer;
    float *overlapBuffer;
    _TOLV_SOLAFS_SEGMENT segments[SOLAFS_MAX_SEGMENTS];
    int32_t nextSegment;
    int32_t segmentCount;
    int32_t pendingSegments;
    /* Search scratch: the window decimated by skewStep and widened to double,
     * one entry per point that some candidate reads, then the template
     * widened to double. */
    double *searchSamples;
};

/* f32 to i32 by truncation as x86 does it: NaN and values out of range give
 * INT32_MIN rather than undefined behaviour. */
/* Doubles of searchSamples before the widened template: the decimated
 * input that the candidates read, with slack for a partial group. */
static inline int32_t _SolafsSearchRoom(int32_t candidates, int32_t points)
{
    return candidates + 2 * points + 4;
}

static inline int32_t _SolafsTrunc(float value)
{
    return _TruncToInt32(value);
}

/* i32 arithmetic of positions wraps like the machine's: long streams and
 * stray speeds must not turn into undefined behaviour. */
static inline int32_t _SolafsWrap(int64_t value)
{
    return (int32_t)(uint32_t)(uint64_t)value;
}

/* Analysis position p: offset plus speed times synthesis position, in f32. */
static inline int32_t _SolafsAnalysisPos(const _TOLV_SOLAFS *s)
{
    float scaled = s->speed * (float)s->synthesisPos;
    return _SolafsTrunc((float)s->analysisOffset + scaled);
}

/* Entry `index` of inputBuffer; outside the window, silence. */
static inline float _SolafsInputAt(const _TOLV_SOLAFS *s, int64_t index)
{
    if (index < 0 || index >= s->inputCapacity)
        return 0.0f;
    return s->inputBuffer[index];
}

/* Copies count entries of inputBuffer from index first on, silence outside
 * the window. */
void _SolafsReadInput(const _TOLV_SOLAFS *s, int64_t first, int32_t count,
                      float *dest);
/* One output pass, in stages: ready while the whole search range lies in
 * the window ahead of p; begin takes the outgoing stretch, advances the
 * synthesis position (taking a queued speed change) and returns the new
 * analysis position; keep-alignment sets the skew that continues the
 * previous alignment and tells whether it fits the search range (otherwise
 * the caller chooses the skew); finish cross-fades the block to frame
 * `produced` of the caller's block and returns the new frame count. */
bool _SolafsPassReady(const _TOLV_SOLAFS *s, int32_t p);
int32_t _SolafsBeginPass(_TOLV_SOLAFS *s, int32_t p);
bool _SolafsKeepAlignment(_TOLV_SOLAFS *s, int32_t p);
int32_t _SolafsFinishPass(_TOLV_SOLAFS *s, int32_t p, int channel,
                          float *samples, int32_t produced);
/* Chooses skew for analysis position p by correlating the outgoing stretch in
 * overlapBuffer with every candidate; returns the best skew. */
int32_t _SolafsSearch(_TOLV_SOLAFS *s, int32_t p);
/* Fades from overlapBuffer into the input at alignedPos; writes the block to
 * overlapBuffer and to frame `first` on of the caller's interleaved block. */
void _SolafsCrossFade(_TOLV_SOLAFS *s, int channel, float *samples,
                      int32_t first);

#endif
