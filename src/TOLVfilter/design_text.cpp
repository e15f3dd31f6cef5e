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

#include "TOLVfilter/design_describe.h"
#include "keel.h"

namespace {

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

/* The design road from the checked description to the filter. */
_TOLV_FILTER *design(const _DESIGN_DESCRIPTION &d, float userGain,
                     int numChannels)
{
    const double Ap = d.Ap, As = d.As, r = d.ratio;
    const int type = d.typeCode;
    int N = _PrototypeOrder(d);
    if (N <= 0)
        return nullptr;
    const bool band = type == _kBandpass || type == _kBandReject;
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
    if (d.record->design(1.0, r, Ap, As, N, poles, zeros, &gain) != 1)
        return nullptr;
    _BilinearPrototype(N, poles, zeros, &gain);
    if (band) {
        const int ok =
            type == _kBandpass
                ? _ConvertDigitalProtoToBP(N, d.p1, d.p2, poles, zeros, &gain)
                : _ConvertDigitalProtoToBR(N, d.p1, d.p2, poles, zeros, &gain);
        if (ok != 1)
            return nullptr;
        N *= 2;
    } else {
        _TransformLowHigh(type == _kHighpass, d.p1, N, poles, zeros, &gain);
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
    const int nc = _WholeValue(text, "nc", 1.0f);
    const int numChannels = _WholeValue(text, "num_channels", (float)nc);

    bool done;
    _TOLV_FILTER *filter = fromBiquads(text, numChannels, &done);
    if (!done)
        filter = fromVectors(text, numChannels, &done);
    if (done) {
        free(text);
        return filter;
    }

    _DESIGN_DESCRIPTION d;
    const bool described = _DescribeDesign(text, &d);
    free(text);
    return described ? design(d, userGain, numChannels) : nullptr;
}
