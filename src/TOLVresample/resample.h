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
 * small; it never shrinks. The capacity counts `required` only: `slack`
 * more entries after them are the work room of the vector lanes. */
void _ResampleGrowStaging(double **staging, int64_t *capacity, int64_t required,
                          int64_t slack);

/* What a kind does behind the exported calls. The set-up fills in the
 * handle's kind and state (or leaves the state null after a refusal); the
 * others work on the state. Adding a kind means a table of these in the
 * kind's own files, a row of _ResampleOps and a word of the "type" key. */
typedef struct _TOLV_RESAMPLE_OPS {
    void (*setUp)(_TOLV_RESAMPLE *handle, int inputRate, int outputRate,
                  const char *config);
    int (*run)(void *state, const float *input, float *output, int frames);
    int (*pending)(const void *state); /* frames a flush can still give */
    int (*flush)(void *state, float *output, int maxFrames);
    void (*destroy)(void *state);
} _TOLV_RESAMPLE_OPS;

extern const _TOLV_RESAMPLE_OPS _PolyphaseOps;
extern const _TOLV_RESAMPLE_OPS _ZOHOps;

/* The operations of a handle's kind; null for a kind no set-up writes (a
 * corrupted object). */
const _TOLV_RESAMPLE_OPS *_ResampleOps(const _TOLV_RESAMPLE *handle);

int _PolyphaseResample(_TOLV_POLYPHASE *state, const float *input,
                       float *output, int frames);
int _ZOHResample(_TOLV_ZOH *state, const float *input, float *output,
                 int frames);
int _PolyphaseFlush(_TOLV_POLYPHASE *state, float *output, int maxFrames);

/* The ticks of a whole block widened to double in x (staging), run side by
 * side in vector lanes, the history before the block read from the line
 * (which the caller then brings up to date); the phase and the skip count
 * move on past the block. Gives the ticks written, or -1 with nothing done
 * when the plain loop must take the block (lanes off, rows too far apart). */
int _PolyphaseLaneTicks(_TOLV_POLYPHASE *s, const double *x, int frames,
                        float *output);
/* Work room the lanes need after a staging block of `frames` entries; it
 * grows with frames up to a bound, so staging still grows only with the
 * largest block. */
int64_t _PolyphaseLaneSlack(const _TOLV_POLYPHASE *s, int64_t frames);
/* Double lanes of the widest tick kernel the processor runs (8, 4 or 2),
 * or the width set by _PolyphaseSetLanes; 1 is the plain loop. */
int _PolyphaseLanes(void);
/* Forces a lane width (1, 2, 4 or 8, no wider than the processor runs) for
 * every stream; 0 goes back to the widest. For tests and benchmarks. */
void _PolyphaseSetLanes(int lanes);

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
        sum = static_cast<Sum>(static_cast<double>(sum) +
                               line[writeIndex + t] * row[t]);
    for (int32_t t = 0; t < writeIndex; t++)
        sum = static_cast<Sum>(static_cast<double>(sum) +
                               line[t] * row[taps - writeIndex + t]);
    return sum;
}

/* The grid of one input frame: the ticks with phase below L, M apart, the
 * first skipRemaining ticks of the stream dropped for delay compensation.
 * tick(phase) gives each kept tick and returns false to leave at once,
 * before the phase moves on; then this returns false too. The caller
 * takes L off the phase behind it. */
template <class Tick>
static inline bool _FrameTicks(_TOLV_POLYPHASE *s, int32_t *phase, Tick tick)
{
    for (; *phase < s->up; *phase += s->down) {
        if (s->skipRemaining != 0) {
            s->skipRemaining--;
            continue;
        }
        if (!tick(*phase))
            return false;
    }
    return true;
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
