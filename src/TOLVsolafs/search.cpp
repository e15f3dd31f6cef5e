/* Similarity search of a SOLAFS channel: which skew, 0 .. maxSkew - skewStep
 * in steps of skewStep, makes the input at the analysis position continue
 * the outgoing stretch best.
 *
 * The measure is dot / sqrt(1 + energy), over every correlationStep-th
 * sample of a similarityLength stretch. Only the candidate's energy enters,
 * and the dot product is neither squared nor made absolute, so only in-phase
 * matches score; the 1.0 keeps silence finite at a score of 0. Sums run in
 * double in ascending point order. Candidates are independent of each other,
 * so two of them share a vector register, one per lane, each lane summing in
 * that same order: the scores are those of the plain loop to the bit. */
#include <math.h>

#include "lanes.h"
#include "solafs.h"

/* Scores of candidates c .. c + 3, four lanes in two registers; candidate
 * c + k reads point i at x[k + ratio * i]. */
static void _SolafsScore4(const double *x, const float *y, int32_t points,
                          int32_t ratio, double *scores)
{
    _D2 dot01 = {0.0, 0.0}, dot23 = {0.0, 0.0};
    _D2 energy01 = {1.0, 1.0}, energy23 = {1.0, 1.0};
    for (int32_t i = 0; i < points; i++) {
        const double *at = x + ratio * i;
        const _D2 v01 = _LoadD2(at);
        const _D2 v23 = _LoadD2(at + 2);
        const double t = (double)y[i];
        energy01 = energy01 + v01 * v01;
        energy23 = energy23 + v23 * v23;
        dot01 = dot01 + v01 * t;
        dot23 = dot23 + v23 * t;
    }
    _StoreD2(scores, dot01 / _SqrtD2(energy01));
    _StoreD2(scores + 2, dot23 / _SqrtD2(energy23));
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

    /* The strictly greater rule: the smallest of equal candidates wins, and
     * with no positive score the skew stays 0. */
    const float *y = s->similarityTemplate;
    int32_t skew = 0;
    double best = 0.0;
    double scores[4];
    /* W is a multiple of 8, so there are W / 2 candidates, a multiple of 4;
     * a last partial group would only read the scratch's slack. */
    for (int32_t c = 0; c < candidates; c += 4) {
        _SolafsScore4(x + c, y, points, ratio, scores);
        int32_t lanes = candidates - c < 4 ? candidates - c : 4;
        for (int32_t k = 0; k < lanes; k++) {
            if (scores[k] > best) {
                best = scores[k];
                skew = (c + k) * s->skewStep;
            }
        }
    }
    return skew;
}
