/* Construction and end of a SOLAFS channel. */
#include "solafs.h"

/* Cleared entries from the channel's descriptor; a negative count (from
 * unchecked arguments) gets an empty array rather than a huge request. */
static void *_SolafsNewArray(KEEL_MEMDESCR mem, int32_t count, uint32_t size)
{
    uint32_t entries = count > 0 ? (uint32_t)count : 0u;
    return KEELMEM_NewEx(mem, entries * size, 0);
}

extern "C" TOLV_API _TOLV_SOLAFS *TOLV_SolafsCreate(int frameMs, int sampleRate,
                                                    int channels)
{
    KEEL_MEMDESCR mem = KEELMEM_CreateMemDescrEx("Solafs channel", 0, 8);
    _TOLV_SOLAFS *s =
        (_TOLV_SOLAFS *)KEELMEM_NewEx(mem, (uint32_t)sizeof(_TOLV_SOLAFS), 0);
    s->memDescr = mem;

    /* The frame length is a multiple of 8, so half a frame splits evenly into
     * the correlation's decimation of 8 and the similarity, overlap and hop
     * lengths are all W / 2. */
    int32_t w = _SolafsWrap((int64_t)frameMs * sampleRate) / 1000;
    w &= ~7;

    s->speed = 1.0f;
    s->frameLength = w;
    s->similarityLength = w >> 1;
    s->overlapLength = w >> 1;
    s->maxSkew = _SolafsWrap(2 * (int64_t)w);
    s->correlationStep = 8;
    s->skewStep = 4;
    s->synthesisHop = w - (w >> 1);
    s->inputCapacity = sampleRate;
    /* One request to the descriptor holds less than 4 GiB: a window for a
     * rate above 2^30 - 1 is cut to that many floats. */
    if (s->inputCapacity > (int32_t)(UINT32_MAX / sizeof(float)))
        s->inputCapacity = (int32_t)(UINT32_MAX / sizeof(float));
    s->inputEnd = w >> 1;
    s->channelStride = channels;

    int32_t points = s->similarityLength / s->correlationStep;
    s->similarityIndex =
        (int32_t *)_SolafsNewArray(mem, points, sizeof(int32_t));
    s->similarityTemplate =
        (float *)_SolafsNewArray(mem, points, sizeof(float));
    s->crossFade =
        (float *)_SolafsNewArray(mem, s->overlapLength, sizeof(float));
    s->inputBuffer =
        (float *)_SolafsNewArray(mem, s->inputCapacity, sizeof(float));
    s->overlapBuffer =
        (float *)_SolafsNewArray(mem, s->overlapLength, sizeof(float));
    /* Candidate c reads point i at skewStep * (c + 2 i) from the analysis
     * position on, since correlationStep is twice skewStep. */
    int32_t candidates = s->maxSkew / s->skewStep;
    /* The decimated input, then the template widened to double. */
    int32_t room = candidates > 0 && points > 0
                       ? _SolafsSearchRoom(candidates, points) + points
                       : 0;
    s->searchSamples = (double *)_SolafsNewArray(mem, room, sizeof(double));

    /* Fade-in weights strictly between 0 and 1, never reaching either end. */
    double denominator = (double)(float)s->overlapLength + 1.0;
    for (int32_t i = 0; i < s->overlapLength; i++)
        s->crossFade[i] = (float)(((double)(float)i + 1.0) / denominator);
    /* Decimated points of the compared stretch, relative to its last sample. */
    for (int32_t i = 0; i < points; i++)
        s->similarityIndex[i] = 8 * i + 1 - s->similarityLength;
    return s;
}

/* Only reports the channel's memory: the descriptor is not disposed of, so
 * the object's memory stays allocated. */
extern "C" TOLV_API void TOLV_SolafsDestroy(_TOLV_SOLAFS *solafs)
{
    if (solafs == nullptr)
        return;
    KEELMEM_DisplayMemDescr(solafs->memDescr);
}
