/*
 * Private side of the streaming sample-rate converter. One handle holds one
 * channel; its kind selects a polyphase windowed-sinc converter or a
 * zero-order hold cleaned by a stored elliptic low-pass.
 *
 * Both kinds share one grid: L output ticks fit the time of M input frames.
 * Each input frame enters, the ticks with phase below L fire (phase grows by
 * M at each), then phase falls by L.
 */
#ifndef TOLV_RESAMPLE_H
#define TOLV_RESAMPLE_H

#include <stdint.h>

#include "keel.h"
#include "tolv.h"

enum { TOLV_RESAMPLE_POLYPHASE = 0, TOLV_RESAMPLE_ZOH = 1 };

struct _TOLV_RESAMPLE {
    uint32_t kind; /* TOLV_RESAMPLE_POLYPHASE or TOLV_RESAMPLE_ZOH */
    void *impl;    /* the kind's state; null after a refused order */
};

typedef struct _TOLV_POLYPHASE {
    double *staging;         /* input block widened to double; only grows */
    int64_t stagingCapacity; /* entries of staging */
    double **phaseFilters;   /* up rows of tapsPerPhase taps */
    double *delayLine;       /* circular history, newest at writeIndex */
    int32_t up;              /* L */
    int32_t down;            /* M */
    int32_t phase;           /* position on the grid; negative once flushed */
    int32_t tapsPerPhase;    /* K */
    int32_t writeIndex;
    int32_t skipRemaining;  /* ticks still dropped for delay compensation */
    int32_t flushRemaining; /* frames a flush can still give */
} _TOLV_POLYPHASE;

typedef struct _TOLV_ZOH {
    int64_t up;   /* L */
    int64_t down; /* M */
    uint32_t phase;
    int64_t inputCount; /* input frames consumed; informational */
    double *staging;    /* work block; only grows */
    int64_t stagingCapacity;
    int32_t stagingFactor; /* L / M + 1: output frames per input frame */
    int32_t coefficientCount;
    int32_t upsampling; /* 1: hold then filter; 0: filter then hold */
    double *stateA;     /* filter memory, coefficientCount + 1 */
    double *stateB;     /* same allocation, coefficientCount + 1 on */
    const double *aCoeffs;
    const double *bCoeffs;
} _TOLV_ZOH;

/* One stored low-pass per pair of rates; the pair is unordered, the filter
 * always runs at the higher rate. */
typedef struct _TOLV_FILTERSET_ROW {
    uint32_t higherRate;
    uint32_t lowerRate;
    const double *a;
    const double *b;
    int32_t count;
} _TOLV_FILTERSET_ROW;

extern const _TOLV_FILTERSET_ROW FilterSet[];
extern const int FilterSetRows;

/* The one text of every streaming report. */
extern const char __ResampleBadObject[];

int32_t _ResampleGcd(int32_t a, int32_t b);
/* Grows a work block to at least `required` entries when it is null or too
 * small; it never shrinks. */
void _ResampleGrowStaging(double **staging, int64_t *capacity,
                          int64_t required);

/* Set-up of each kind; the handle is already allocated. */
void _PolyphaseResampleInit(_TOLV_RESAMPLE *handle, int inputRate,
                            int outputRate, const char *config);
void _ZOHResampleInit(_TOLV_RESAMPLE *handle, int inputRate, int outputRate);

int _PolyphaseResample(_TOLV_POLYPHASE *state, const float *input,
                       float *output, int frames);
int _ZOHResample(_TOLV_ZOH *state, const float *input, float *output,
                 int frames);
int _PolyphaseFlush(_TOLV_POLYPHASE *state, float *output, int maxFrames);

/* The state behind a handle of a known kind. A handle whose order was
 * refused has none, and no operation can go on with it. */
_TOLV_POLYPHASE *_PolyphaseState(const _TOLV_RESAMPLE *handle);
_TOLV_ZOH *_ZOHState(const _TOLV_RESAMPLE *handle);

/* One tick over the circular history: the tap row[t] meets the sample of
 * age t, which sits at (writeIndex + t) mod K, so the ring is walked as two
 * linear runs. Sum is the accumulator's type: double for the block path;
 * float for the flush, whose running sum is rounded after every term. Each
 * product is formed in double either way. */
template <typename Sum>
static inline Sum _RingTick(const double *line, const double *row,
                            int32_t writeIndex, int32_t taps)
{
    Sum sum = 0;
    for (int32_t t = 0; t < taps - writeIndex; t++)
        sum = (Sum)((double)sum + line[writeIndex + t] * row[t]);
    for (int32_t t = 0; t < writeIndex; t++)
        sum = (Sum)((double)sum + line[t] * row[taps - writeIndex + t]);
    return sum;
}

/* Steps the circular history one sample on: the line runs backwards. */
static inline void _RingPush(double *line, int32_t *writeIndex, int32_t taps,
                             double sample)
{
    if (--*writeIndex < 0)
        *writeIndex = taps - 1;
    line[*writeIndex] = sample;
}

#endif
