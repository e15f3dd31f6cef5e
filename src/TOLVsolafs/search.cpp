/* Similarity search of a SOLAFS channel: which skew, 0 .. maxSkew - skewStep
 * in steps of skewStep, makes the input at the analysis position continue
 * the outgoing stretch best.
 *
 * The measure is dot / sqrt(1 + energy), over every correlationStep-th
 * sample of a similarityLength stretch. Only the candidate's energy enters,
 * and the dot product is neither squared nor made absolute, so only in-phase
 * matches score; the 1.0 keeps silence finite at a score of 0. Sums run in
 * double in ascending point order. Candidates are independent of each other,
 * so neighbours share a vector register, one per lane (2, 4 or 8 lanes as the
 * processor has them, two registers at a time), each lane summing in that
 * same order: the scores are those of the plain loop to the bit. */
#if defined(__x86_64__)
#include <immintrin.h>
#endif
#include <math.h>
#include <string.h>

#include "lanes.h"
#include "solafs.h"

#define _SEARCH_LANES 2
namespace {
namespace lanes2 {
#include "TOLVsolafs/search_lanes.inc"
}
} // namespace
#undef _SEARCH_LANES

#if defined(__x86_64__)
_TOLV_TARGET_BEGIN("avx2")
#define _SEARCH_LANES 4
namespace {
namespace lanes4 {
#include "TOLVsolafs/search_lanes.inc"
}
} // namespace
#undef _SEARCH_LANES
_TOLV_TARGET_END
_TOLV_TARGET_BEGIN("avx512f")
#define _SEARCH_LANES 8
namespace {
namespace lanes8 {
#include "TOLVsolafs/search_lanes.inc"
}
} // namespace
#undef _SEARCH_LANES
_TOLV_TARGET_END
#endif

/* Scores of the candidates from x on, as many as the widest group of the
 * vector level holds (4, 8 or 16). */
static void _ScoreWidest(int level, const double *x, const double *y,
                         int32_t points, int32_t ratio, double *scores)
{
#if defined(__x86_64__)
    if (level == 2) {
        return lanes8::_ScoreGroup(x, y, points, ratio, scores);
    }
    if (level == 1) {
        return lanes4::_ScoreGroup(x, y, points, ratio, scores);
    }
#else
    (void)level;
#endif
    lanes2::_ScoreGroup(x, y, points, ratio, scores);
}

/* The strictly greater rule: the smallest of equal candidates wins. */
static void _KeepBest(const double *scores, int32_t count, int32_t c,
                      int32_t skewStep, double *best, int32_t *skew)
{
    for (int32_t k = 0; k < count; k++) {
        if (scores[k] > *best) {
            *best = scores[k];
            *skew = (c + k) * skewStep;
        }
    }
}

int32_t _SolafsSearch(_TOLV_SOLAFS *s, int32_t p)
{
    int32_t points = s->similarityLength / s->correlationStep;
    int32_t candidates = s->maxSkew / s->skewStep;
    /* The template is every correlationStep-th sample of the outgoing
     * stretch, from its first sample on. */
    for (int32_t i = 0; i < points; i++)
        s->similarityTemplate[i] =
            s->overlapBuffer[s->similarityIndex[i] + s->overlapLength - 1];
    if (points <= 0 || candidates <= 0)
        return 0; /* every score is 0 / sqrt(1) */
    /* Widened once, so that each candidate group broadcasts a double. */
    double *y = s->searchSamples + _SolafsSearchRoom(candidates, points);
    for (int32_t i = 0; i < points; i++)
        y[i] = (double)s->similarityTemplate[i];

    /* Widen once the samples that any candidate reads: the input from p on,
     * decimated by skewStep. correlationStep is a multiple of skewStep, so
     * point i of candidate c is decimated sample c + ratio * i. */
    int32_t ratio = s->correlationStep / s->skewStep;
    int32_t decimated = candidates + ratio * (points - 1);
    int64_t first = (int64_t)s->similarityLength + s->similarityIndex[0] + p -
                    1 - s->inputBase;
    int64_t last = first + (int64_t)s->skewStep * (decimated - 1);
    double *x = s->searchSamples;
    if (first >= 0 && last < s->inputCapacity) {
        const float *in = s->inputBuffer + first;
        for (int32_t m = 0; m < decimated; m++)
            x[m] = (double)in[(int64_t)s->skewStep * m];
    } else {
        for (int32_t m = 0; m < decimated; m++)
            x[m] = (double)_SolafsInputAt(s, first + (int64_t)s->skewStep * m);
    }

    /* With no positive score the skew stays 0. Groups of the widest lanes
     * while whole groups fit, then fours: W is a multiple of 8, so there are
     * W / 2 candidates, a multiple of 4. */
    const int level = _TOLV_VectorLevel();
    const int32_t widest = 4 << level;
    int32_t skew = 0;
    double best = 0.0;
    double scores[16];
    int32_t c = 0;
    for (; c + widest <= candidates; c += widest) {
        _ScoreWidest(level, x + c, y, points, ratio, scores);
        _KeepBest(scores, widest, c, s->skewStep, &best, &skew);
    }
    for (; c < candidates; c += 4) {
        lanes2::_ScoreGroup(x + c, y, points, ratio, scores);
        int32_t count = candidates - c < 4 ? candidates - c : 4;
        _KeepBest(scores, count, c, s->skewStep, &best, &skew);
    }
    return skew;
}
