/*
 * Roots to biquads: the final digital roots are paired into second-order
 * sections in the order in which they stand in the lists. No sorting and no
 * pole-zero matching: the cascade order is the order the design left.
 *
 * Real roots pair with the next entry, which must be real as well; a complex
 * entry makes a section on its own with its (unstored) conjugate. An odd
 * order ends with a first-order section from the last real pole and zero.
 */
#include <cmath>
#include <cstdlib>

#include "TOLVfilter/design.h"
#include "TOLVfilter/filter.h"
#include "keel.h"

/* No tolerance: -0.0 is real and NaN is not. */
static bool isReal(const _ROOT &r)
{
    return r.imag() == 0.0;
}

int _PairRootsIntoSections(int N, const _ROOT *poles, const _ROOT *zeros,
                           double g, double *sections)
{
    const int odd = N & 1;
    const int S = N / 2 + odd;
    int i = 0, j = 0;
    for (int s = 0; s < S - odd; s++) {
        double *bq = sections + 5 * static_cast<size_t>(s);
        const _ROOT p = poles[i];
        if (!isReal(p)) {
            bq[0] = p.real() * -2.0;
            bq[1] = p.real() * p.real() + p.imag() * p.imag();
            i += 1;
        } else {
            const _ROOT q = poles[i + 1];
            if (!isReal(q)) {
                KEELDEBUG_Error(-1,
                                "_MakeFilterFromRoots: Unpaired real poles");
                return 0;
            }
            bq[0] = -p.real() - q.real();
            bq[1] = p.real() * q.real();
            i += 2;
        }
        const _ROOT z = zeros[j];
        if (!isReal(z)) {
            bq[3] = (-2.0 * g) * z.real();
            bq[4] = (z.imag() * z.imag() + z.real() * z.real()) * g;
            j += 1;
        } else {
            const _ROOT u = zeros[j + 1];
            if (!isReal(u)) {
                KEELDEBUG_Error(-1,
                                "_MakeFilterFromRoots: Unpaired real zeros");
                return 0;
            }
            bq[3] = (z.real() + u.real()) * -g;
            bq[4] = u.real() * (z.real() * g);
            j += 2;
        }
        bq[2] = g;
    }
    if (odd) {
        const _ROOT p = poles[i], z = zeros[j];
        if (!isReal(p) || !isReal(z)) {
            KEELDEBUG_Error(-1,
                            "_MakeFilterFromRoots: Unpaired imaginary root");
            return 0;
        }
        double *bq = sections + 5 * static_cast<size_t>(S - 1);
        bq[0] = -p.real();
        bq[1] = 0.0;
        bq[2] = g;
        bq[3] = -g * z.real();
        bq[4] = 0.0;
    }
    return 1;
}

/* Builds the section object itself rather than going through the exported
 * constructor: a designed cascade has no section limit, and its type code
 * is kept. */
_TOLV_FILTER *_MakeFilterFromRoots(int N, const _ROOT *poles,
                                   const _ROOT *zeros, double total,
                                   float userGain, int numChannels,
                                   int filterType)
{
    const int odd = N & 1;
    const int S = N / 2 + odd;
    _DFIISOSstate *st =
        static_cast<_DFIISOSstate *>(calloc(1, sizeof(_DFIISOSstate)));
    st->numSections = S;
    st->sections = static_cast<double *>(
        calloc(5 * static_cast<size_t>(S), sizeof(double)));
    /* A channel count below 1 gets no ring: no frame ever touches it. */
    const size_t ring = numChannels > 0 ? 4 * static_cast<size_t>(numChannels) *
                                              static_cast<size_t>(S)
                                        : 0;
    st->memory =
        static_cast<double *>(calloc(ring > 0 ? ring : 1, sizeof(double)));

    /* The gain is spread evenly: every section gets the same b0. */
    const double g = pow(total * static_cast<double>(userGain), 1.0 / S);
    if (st->sections == nullptr || st->memory == nullptr ||
        !_PairRootsIntoSections(N, poles, zeros, g, st->sections)) {
        free(st->sections);
        free(st->memory);
        free(st);
        return nullptr;
    }
    _TOLV_FILTER *f =
        static_cast<_TOLV_FILTER *>(calloc(1, sizeof(_TOLV_FILTER)));
    f->filterFn = _DFIISOSfilter;
    f->resetFn = _DFIISOSreset;
    f->copyMemFn = _DFIISOScopyMem;
    f->stateData = st;
    f->filterType = filterType;
    f->numChannels = numChannels;
    return f;
}
