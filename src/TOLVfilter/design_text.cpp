/*
 * TOLV_CreateFilter: a filter from a configuration text.
 *
 * The text either gives the filter outright ("biquads" rows, or "numerator"
 * and "denominator") or describes it: band type, approximation, edges, Ap,
 * As and order. A description goes the whole design road: order estimate,
 * analog prototype, bilinear step, z-plane transformation to the band, and
 * pairing into sections.
 */
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TOLVfilter/design.h"
#include "keel.h"

namespace {

enum { kLowpass = 0, kHighpass = 1, kBandpass = 2, kBandReject = 3 };

struct Keyword {
    const char *word;
    int code;
};

const Keyword kTypes[] = {
    {"lowpass", kLowpass},       {"lp", kLowpass},
    {"highpass", kHighpass},     {"hp", kHighpass},
    {"bandpass", kBandpass},     {"bp", kBandpass},
    {"bandreject", kBandReject}, {"br", kBandReject},
    {"bandstop", kBandReject},   {"bs", kBandReject},
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

/* The formatted text, or an empty one for a null or empty format. */
char *formatText(const char *format, va_list args)
{
    if (format == nullptr || format[0] == '\0')
        return static_cast<char *>(calloc(1, 1));
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(nullptr, 0, format, args);
    char *text = static_cast<char *>(
        malloc(length > 0 ? static_cast<size_t>(length) + 1 : 1));
    if (length > 0)
        vsnprintf(text, static_cast<size_t>(length) + 1, format, again);
    else
        text[0] = '\0';
    va_end(again);
    return text;
}

/* Float values counted in whole numbers (channels, sampling rate). */
int wholeValue(const char *text, const char *key, float fallback)
{
    return _TruncToInt32(
        KEELSTRING_GetFloatValueFromString(text, key, fallback));
}

/* "biquads" rows of exactly five coefficients, or null when the key does
 * not hold such a matrix. *done tells whether the text gave a filter. */
_TOLV_FILTER *fromBiquads(const char *text, int numChannels, bool *done)
{
    int rows = 0, columns = 0;
    *done = false;
    if (!KEELSTRING_GetMatrixSizeFromString(text, "biquads", &rows, &columns) ||
        columns != 5)
        return nullptr;
    *done = true;
    const size_t count = rows > 0 ? static_cast<size_t>(rows) : 0;
    double *scratch =
        static_cast<double *>(calloc(count * 5 + 5, sizeof(double)));
    KEELSTRING_GetDoubleMatrixValuesFromString(text, "biquads", scratch, rows,
                                               5);
    _TOLV_FILTER *filter = TOLV_CreateFilterFromBiquads(
        numChannels, static_cast<uint32_t>(rows), scratch);
    free(scratch);
    return filter;
}

/* "numerator" with "denominator"; the denominator is not looked at without
 * a numerator. An empty vector has no leading coefficient and does not
 * count as one. */
_TOLV_FILTER *fromVectors(const char *text, int numChannels, bool *done)
{
    int numLength = 0, denLength = 0;
    *done = false;
    if (!KEELSTRING_GetVectorSizeFromString(text, "numerator", &numLength) ||
        numLength < 1 ||
        !KEELSTRING_GetVectorSizeFromString(text, "denominator", &denLength) ||
        denLength < 1)
        return nullptr;
    *done = true;
    double *den = static_cast<double *>(
        calloc(static_cast<size_t>(denLength), sizeof(double)));
    double *num = static_cast<double *>(
        calloc(static_cast<size_t>(numLength), sizeof(double)));
    KEELSTRING_GetDoubleVectorValuesFromString(text, "denominator", den,
                                               denLength);
    KEELSTRING_GetDoubleVectorValuesFromString(text, "numerator", num,
                                               numLength);
    _TOLV_FILTER *filter = TOLV_CreateFilterFromCoefs(
        numChannels, static_cast<uint32_t>(numLength), num,
        static_cast<uint32_t>(denLength), den);
    free(num);
    free(den);
    return filter;
}

/* What a description asks for, as read from the text. */
struct Description {
    char type[64];
    char approximation[64];
    int order;
    float Ap, As;
    float p1, p2, s1, s2;
    int fs;
};

void readDescription(const char *text, Description *d)
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
    d->fs = wholeValue(text, "fs", -1.0f);
}

/* Edges as fractions of Nyquist. A sampling rate that truncates to 0 is
 * still used as the divisor. Negative edges mean "absent" and stay. */
bool scaleEdges(Description *d)
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
bool selectivity(int type, Description *d, float *ratio)
{
    const float p1 = d->p1, p2 = d->p2;
    float s1 = d->s1, s2 = d->s2;
    const bool has1 = s1 > 0.0f, has2 = s2 > 0.0f;
    *ratio = -1.0f;
    if (type == kLowpass || type == kHighpass) {
        if (p1 < 0.0f) {
            KEELDEBUG_Error(-1, "TOLV_CreateFilter: You must specify a cutoff "
                                "frequency (fpass)");
            return false;
        }
        if (p1 == 0.0f)
            return false;
        if (has1) {
            if (type == kLowpass ? !(p1 < s1) : !(s1 < p1))
                return false;
            *ratio = type == kLowpass ? s1 / p1 : p1 / s1;
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
    if (type == kBandpass) {
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

/* The design road from the checked description to the filter. */
_TOLV_FILTER *design(const Description &d, int type,
                     const _DESIGN_RECORD &record, float ratio, float userGain,
                     int numChannels)
{
    const double Ap = d.Ap, As = d.As, r = ratio;
    int N = d.order;
    if (N <= record.orderEstimate(1.0, r, Ap, As))
        N = record.orderEstimate(1.0, r, Ap, As);
    if (N <= 0)
        return nullptr;
    const bool band = type == kBandpass || type == kBandReject;
    /* A band doubles the order, which must stay a 32-bit count. */
    if (band && N > INT32_MAX / 2)
        return nullptr;
    const size_t entries =
        band ? 2 * static_cast<size_t>(N) : static_cast<size_t>(N);
    _RootScratch poleList(entries), zeroList(entries);
    _ROOT *poles = poleList.data(), *zeros = zeroList.data();
    if (poles == nullptr || zeros == nullptr)
        return nullptr;

    double gain;
    if (record.design(1.0, r, Ap, As, N, poles, zeros, &gain) != 1)
        return nullptr;
    _BilinearPrototype(N, poles, zeros, &gain);
    if (band) {
        const int ok =
            type == kBandpass
                ? _ConvertDigitalProtoToBP(N, d.p1, d.p2, poles, zeros, &gain)
                : _ConvertDigitalProtoToBR(N, d.p1, d.p2, poles, zeros, &gain);
        if (ok != 1)
            return nullptr;
        N *= 2;
    } else {
        _TransformLowHigh(type == kHighpass, d.p1, N, poles, zeros, &gain);
    }
    return _MakeFilterFromRoots(N, poles, zeros, gain, userGain, numChannels,
                                type);
}

} // namespace

extern "C" TOLV_API _TOLV_FILTER *TOLV_CreateFilter(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    char *text = formatText(format, args);
    va_end(args);

    const float userGain =
        KEELSTRING_GetFloatValueFromString(text, "gain", 1.0f);
    const int nc = wholeValue(text, "nc", 1.0f);
    const int numChannels = wholeValue(text, "num_channels", (float)nc);

    bool done;
    _TOLV_FILTER *filter = fromBiquads(text, numChannels, &done);
    if (!done)
        filter = fromVectors(text, numChannels, &done);
    if (done) {
        free(text);
        return filter;
    }

    Description d;
    readDescription(text, &d);
    free(text);

    if (!scaleEdges(&d))
        return nullptr;
    if (d.As <= 0.0f && d.order <= 0) {
        KEELDEBUG_Error(-1, "TOLV_CreateFilter: you must specify As or order");
        return nullptr;
    }
    int type = -1;
    for (const Keyword &k : kTypes)
        if (strcmp(d.type, k.word) == 0) {
            type = k.code;
            break;
        }
    if (type < 0) {
        KEELDEBUG_Error(-1, "TOLV_CreateFilter: Invalid filter type: %s\n",
                        d.type);
        return nullptr;
    }
    float ratio;
    if (!selectivity(type, &d, &ratio))
        return nullptr;
    const _DESIGN_RECORD *record = nullptr;
    for (const Approximation &a : kApproximations)
        if (strcmp(d.approximation, a.word) == 0) {
            record = a.record;
            break;
        }
    if (record == nullptr) {
        KEELDEBUG_Error(-1, "TOLV_CreateFilter: Invalid approximation (%s)",
                        d.approximation);
        return nullptr;
    }
    return design(d, type, *record, ratio, userGain, numChannels);
}
