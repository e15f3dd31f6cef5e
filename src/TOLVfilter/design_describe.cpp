/*
 * Reading a design text: keywords of the band types and approximations,
 * defaults, edges in Hz scaled to fractions of Nyquist, the checks of the
 * edges' order and the selectivity ratio the order estimates take.
 */
#include <cstring>

#include "TOLVfilter/design_describe.h"
#include "keel.h"

namespace {

struct Keyword {
    const char *word;
    int code;
};

const Keyword kTypes[] = {
    {"lowpass", _kLowpass},       {"lp", _kLowpass},
    {"highpass", _kHighpass},     {"hp", _kHighpass},
    {"bandpass", _kBandpass},     {"bp", _kBandpass},
    {"bandreject", _kBandReject}, {"br", _kBandReject},
    {"bandstop", _kBandReject},   {"bs", _kBandReject},
};

struct Approximation {
    const char *word;
    const _DESIGN_RECORD *record;
};

const Approximation kApproximations[] = {
    {"butterworth", &_Butterworth},
    {"butter", &_Butterworth},
    {"bt", &_Butterworth},
    {"chebyshev", &_Chebyshev},
    {"chebyshev1", &_Chebyshev},
    {"cheby", &_Chebyshev},
    {"cheby1", &_Chebyshev},
    {"cb", &_Chebyshev},
    {"invchebyshev", &_ChebyshevII},
    {"chebyshev2", &_ChebyshevII},
    {"invcheby", &_ChebyshevII},
    {"cheby2", &_ChebyshevII},
    {"ci", &_ChebyshevII},
    {"ellilptic", &_Elliptic},
    {"ellip", &_Elliptic},
    {"cauer", &_Elliptic},
    {"ca", &_Elliptic},
};

} // namespace

int _WholeValue(const char *text, const char *key, float fallback)
{
    return _TruncToInt32(
        KEELSTRING_GetFloatValueFromString(text, key, fallback));
}

namespace {

void readDescription(const char *text, _DESIGN_DESCRIPTION *d)
{
    KEELSTRING_GetStringValueFromString(text, "type", "lowpass", d->type,
                                        sizeof d->type);
    KEELSTRING_GetStringValueFromString(text, "approximation", "butterworth",
                                        d->approximation,
                                        sizeof d->approximation);
    d->order = KEELSTRING_GetIntegerValueFromString(text, "order", -1);
    d->Ap = KEELSTRING_GetFloatValueFromString(text, "Ap", 3.0f);
    d->As = KEELSTRING_GetFloatValueFromString(text, "As", -1.0f);
    const float fpass =
        KEELSTRING_GetFloatValueFromString(text, "fpass", -1.0f);
    d->p1 = KEELSTRING_GetFloatValueFromString(text, "fpass1", fpass);
    d->p2 = KEELSTRING_GetFloatValueFromString(text, "fpass2", -1.0f);
    const float fstop =
        KEELSTRING_GetFloatValueFromString(text, "fstop", -1.0f);
    d->s1 = KEELSTRING_GetFloatValueFromString(text, "fstop1", fstop);
    d->s2 = KEELSTRING_GetFloatValueFromString(text, "fstop2", -1.0f);
    d->fs = _WholeValue(text, "fs", -1.0f);
}

/* Edges as fractions of Nyquist. A sampling rate that truncates to 0 is
 * still used as the divisor. Negative edges mean "absent" and stay. */
bool scaleEdges(_DESIGN_DESCRIPTION *d)
{
    if (d->fs <= 0 && (d->p1 >= 1.0f || d->p2 >= 1.0f)) {
        KEELDEBUG_Error(-1, "TOLV_CreateFilter: If you want to specify "
                            "frequencies in Hz, you must specify a sampling "
                            "frequency.");
        return false;
    }
    if (d->fs >= 0) {
        const double F = static_cast<double>(d->fs);
        float *edges[4] = {&d->p1, &d->p2, &d->s1, &d->s2};
        for (float *e : edges)
            if (*e >= 0.0f)
                *e = static_cast<float>(2.0 * static_cast<double>(*e) / F);
    }
    return true;
}

/* Selectivity ratio (stop bandwidth over pass bandwidth) of a band type,
 * in floats, or false to refuse the edges. -1 stands for no stop edge. In
 * the bands a single stop edge implies its mirror, and with two the wider
 * transition band is narrowed to the other. */
bool selectivity(int type, _DESIGN_DESCRIPTION *d, float *ratio)
{
    const float p1 = d->p1, p2 = d->p2;
    float s1 = d->s1, s2 = d->s2;
    const bool has1 = s1 > 0.0f, has2 = s2 > 0.0f;
    *ratio = -1.0f;
    if (type == _kLowpass || type == _kHighpass) {
        if (p1 < 0.0f) {
            KEELDEBUG_Error(-1, "TOLV_CreateFilter: You must specify a cutoff "
                                "frequency (fpass)");
            return false;
        }
        if (p1 == 0.0f)
            return false;
        if (has1) {
            if (type == _kLowpass ? !(p1 < s1) : !(s1 < p1))
                return false;
            *ratio = type == _kLowpass ? s1 / p1 : p1 / s1;
        }
        return true;
    }
    if (p1 < 0.0f || p2 < 0.0f) {
        KEELDEBUG_Error(-1, "TOLV_CreateFilter: You must specify two cutoff "
                            "frequences (fpass1 and fpass2)");
        return false;
    }
    if (p1 == 0.0f || p2 == 0.0f || !(p1 < p2))
        return false;
    if (type == _kBandpass) {
        if ((has1 && !(s1 < p1)) || (has2 && !(s2 > p2)))
            return false;
        if (has1 && has2) {
            if (!(s1 < s2))
                return false;
            const float d1 = p1 - s1, d2 = s2 - p2;
            if (d2 > d1)
                s2 = (p1 + p2) - s1;
            else
                s1 = (p1 - s2) + p2;
            *ratio = (s2 - s1) / (p2 - p1);
        } else if (has1) {
            *ratio = (((p1 + p2) - s1) - s1) / (p2 - p1);
        } else if (has2) {
            const float t = (p1 - s2) + p2;
            *ratio = (s2 - t) / (p2 - p1);
        }
    } else {
        if ((has1 && !(s1 > p1)) || (has2 && !(s2 < p2)))
            return false;
        if (has1 && has2) {
            if (!(s1 < s2))
                return false;
            const float d1 = s1 - p1, d2 = p2 - s2;
            if (d2 > d1)
                s2 = (p2 - s1) + p1;
            else
                s1 = (p1 + p2) - s2;
            *ratio = (p2 - p1) / (s2 - s1);
        } else if (has1) {
            *ratio = (p2 - p1) / (((p2 - s1) + p1) - s1);
        } else if (has2) {
            const float t = (p1 + p2) - s2;
            *ratio = (p2 - p1) / (s2 - t);
        }
    }
    return true;
}

/* The entry of a keyword table whose word is `word`, or null. */
template <class Entry, size_t N>
const Entry *lookUp(const Entry (&table)[N], const char *word)
{
    for (const Entry &e : table)
        if (strcmp(word, e.word) == 0)
            return &e;
    return nullptr;
}

} // namespace

bool _DescribeDesign(const char *text, _DESIGN_DESCRIPTION *d)
{
    readDescription(text, d);
    if (!scaleEdges(d))
        return false;
    if (d->As <= 0.0f && d->order <= 0) {
        KEELDEBUG_Error(-1, "TOLV_CreateFilter: you must specify As or order");
        return false;
    }
    const Keyword *type = lookUp(kTypes, d->type);
    if (type == nullptr) {
        KEELDEBUG_Error(-1, "TOLV_CreateFilter: Invalid filter type: %s\n",
                        d->type);
        return false;
    }
    d->typeCode = type->code;
    if (!selectivity(d->typeCode, d, &d->ratio))
        return false;
    const Approximation *a = lookUp(kApproximations, d->approximation);
    if (a == nullptr) {
        KEELDEBUG_Error(-1, "TOLV_CreateFilter: Invalid approximation (%s)",
                        d->approximation);
        return false;
    }
    d->record = a->record;
    return true;
}

int _PrototypeOrder(const _DESIGN_DESCRIPTION &d)
{
    const double Ap = d.Ap, As = d.As, r = d.ratio;
    const int estimate = d.record->orderEstimate(1.0, r, Ap, As);
    return d.order <= estimate ? estimate : d.order;
}

long long _DescribedOrder(const char *text)
{
    _DESIGN_DESCRIPTION d;
    if (!_DescribeDesign(text, &d))
        return -1;
    const long long N = _PrototypeOrder(d);
    if (N <= 0)
        return -1;
    const bool band = d.typeCode == _kBandpass || d.typeCode == _kBandReject;
    return band ? 2 * N : N;
}
