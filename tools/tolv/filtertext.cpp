#include "filtertext.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "cli.h"
#include "TOLVfilter/design_describe.h"
#include "keel.h"

namespace cli {

namespace {
bool present(const std::string &text, const char *key)
{
    char dummy[2];
    return KEELSTRING_GetStringValueFromString(text.c_str(), key, "", dummy,
                                               sizeof dummy) != 0;
}

std::string word(const std::string &text, const char *key, const char *dflt)
{
    char value[64];
    KEELSTRING_GetStringValueFromString(text.c_str(), key, dflt, value,
                                        sizeof value);
    return value;
}

float real(const std::string &text, const char *key, float dflt)
{
    return KEELSTRING_GetFloatValueFromString(text.c_str(), key, dflt);
}

int typeCodeOf(const std::string &type)
{
    static const struct {
        const char *keyword;
        int code;
    } types[] = {{"lowpass", 0},  {"lp", 0}, {"highpass", 1},   {"hp", 1},
                 {"bandpass", 2}, {"bp", 2}, {"bandreject", 3}, {"br", 3},
                 {"bandstop", 3}, {"bs", 3}};
    for (const auto &t : types)
        if (type == t.keyword)
            return t.code;
    return -1;
}
const char *const kValidTypes = "lowpass (lp), highpass (hp), bandpass (bp), "
                                "bandreject (br, bandstop, bs)";
const char *const kValidApproximations =
    "butterworth (butter, bt), chebyshev (chebyshev1, cheby, cheby1, cb), "
    "invchebyshev (chebyshev2, invcheby, cheby2, ci), elliptic (ellip, cauer, "
    "ca)";

std::string lowered(std::string word)
{
    for (char &c : word)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return word;
}

/* What a design text says that the library would misread or answer with
 * a message that does not name the real mistake. */
void checkDesignWords(const FilterText &f)
{
    for (const char *key : {"type", "approximation", "fpass", "order", "As"})
        if (word(f.text, key, "").find('=') != std::string::npos)
            throw Failure(format("the items of a filter text are separated "
                                 "by commas: \"%s\" reads as one item "
                                 "(write \"type=lowpass, fpass=1000, "
                                 "order=4\")",
                                 word(f.text, key, "").c_str()));
    if (f.typeCode < 0)
        throw Failure("unknown filter type \"" + word(f.text, "type", "") +
                      "\"; the types are " + kValidTypes);
    const bool stopEdge = f.s1 > 0 || f.s2 > 0;
    if (f.order <= 0 && f.As > 0 && !stopEdge)
        throw Failure("As sets the order only together with a stop edge: add "
                      "fstop (fstop1 or fstop2 for a band), or give order");
}
} // namespace

std::string normalizeFilterText(const std::string &text)
{
    std::string front;
    const std::string type = word(text, "type", "lowpass");
    if (lowered(type) != type)
        front += "type=" + lowered(type) + ", ";
    const std::string approximation = word(text, "approximation", "butter");
    std::string fixed = lowered(approximation);
    if (fixed == "elliptic")
        fixed = "ellip";
    if (fixed != approximation)
        front += "approximation=" + fixed + ", ";
    return front + text;
}

FilterText readFilterText(const std::string &text)
{
    FilterText f;
    f.text = text;
    const char *t = text.c_str();
    f.channelsGiven = present(text, "num_channels") || present(text, "nc");
    int nc = int(real(text, "nc", 1.0f));
    f.channels = int(real(text, "num_channels", float(nc)));
    f.fsGiven = present(text, "fs");
    f.fs = int(real(text, "fs", -1.0f));

    int rows = 0, columns = 0, count = 0;
    if (KEELSTRING_GetMatrixSizeFromString(t, "biquads", &rows, &columns) &&
        columns == 5) {
        f.form = FilterText::Sections;
        f.biquads.assign(size_t(rows) * 5, 0.0);
        KEELSTRING_GetDoubleMatrixValuesFromString(t, "biquads",
                                                   f.biquads.data(), rows, 5);
        return f;
    }
    int denCount = 0;
    if (KEELSTRING_GetVectorSizeFromString(t, "numerator", &count) &&
        KEELSTRING_GetVectorSizeFromString(t, "denominator", &denCount)) {
        f.form = FilterText::DirectForm;
        f.numerator.assign(size_t(count), 0.0);
        f.denominator.assign(size_t(denCount), 0.0);
        KEELSTRING_GetDoubleVectorValuesFromString(t, "numerator",
                                                   f.numerator.data(), count);
        KEELSTRING_GetDoubleVectorValuesFromString(
            t, "denominator", f.denominator.data(), denCount);
        return f;
    }
    f.form = FilterText::Design;
    f.typeCode = typeCodeOf(word(text, "type", "lowpass"));
    f.approximation = word(text, "approximation", "butterworth");
    f.order = int(real(text, "order", -1.0f));
    f.Ap = real(text, "Ap", 3.0f);
    f.As = real(text, "As", -1.0f);
    float fpass = real(text, "fpass", -1.0f),
          fstop = real(text, "fstop", -1.0f);
    double edges[4] = {real(text, "fpass1", fpass), real(text, "fpass2", -1.0f),
                       real(text, "fstop1", fstop),
                       real(text, "fstop2", -1.0f)};
    // Edges in Hz become fractions of Nyquist; without fs they already are.
    for (double &e : edges)
        if (f.fs > 0 && e >= 0)
            e = 2.0 * e / f.fs;
    f.p1 = edges[0];
    f.p2 = edges[1];
    f.s1 = edges[2] > 0 ? edges[2] : -1;
    f.s2 = edges[3] > 0 ? edges[3] : -1;
    return f;
}

int explicitOrder(const FilterText &f)
{
    if (f.form == FilterText::DirectForm)
        return int(std::max(f.numerator.size(), f.denominator.size())) - 1;
    int order = 0;
    for (size_t i = 0; i + 5 <= f.biquads.size(); i += 5) {
        const double *r = &f.biquads[i]; // a1 a2 b0 b1 b2
        order += (r[1] != 0 || r[4] != 0)   ? 2
                 : (r[0] != 0 || r[3] != 0) ? 1
                                            : 0;
    }
    return order;
}

std::vector<Band> passBands(const FilterText &f)
{
    if (f.form != FilterText::Design || f.p1 <= 0)
        return {};
    switch (f.typeCode) {
    case 0:
        return {{0.0, f.p1}};
    case 1:
        return {{f.p1, 1.0}};
    case 2:
        return f.p2 > f.p1 ? std::vector<Band>{{f.p1, f.p2}}
                           : std::vector<Band>{};
    case 3:
        return f.p2 > f.p1 ? std::vector<Band>{{0.0, f.p1}, {f.p2, 1.0}}
                           : std::vector<Band>{};
    default:
        return {};
    }
}

std::vector<Band> stopBands(const FilterText &f)
{
    if (f.form != FilterText::Design || f.p1 <= 0)
        return {};
    double s1 = f.s1, s2 = f.s2;
    if (f.typeCode == 0)
        return s1 > 0 ? std::vector<Band>{{s1, 1.0}} : std::vector<Band>{};
    if (f.typeCode == 1)
        return s1 > 0 ? std::vector<Band>{{0.0, s1}} : std::vector<Band>{};
    if ((f.typeCode != 2 && f.typeCode != 3) || (s1 <= 0 && s2 <= 0))
        return {};
    // One stop edge of a band implies the other, mirrored about the band.
    if (s2 <= 0)
        s2 = (f.p1 + f.p2) - s1;
    if (s1 <= 0)
        s1 = (f.p1 + f.p2) - s2;
    if (f.typeCode == 2)
        return {{0.0, s1}, {s2, 1.0}};
    return {{s1, s2}};
}

const char *typeName(int code)
{
    static const char *names[] = {"lowpass", "highpass", "bandpass",
                                  "band-reject"};
    return code >= 0 && code < 4 ? names[code] : "unknown";
}

_TOLV_FILTER *createFilter(const std::string &text)
{
    return TOLV_CreateFilter("%s", text.c_str());
}

} // namespace cli

namespace cli {

void checkDesignedOrder(const std::string &text)
{
    const FilterText f = readFilterText(text);
    if (f.form != FilterText::Design)
        return;
    checkDesignWords(f);
    takeLibraryErrors();
    const long long order = _DescribedOrder(text.c_str());
    takeLibraryErrors();
    if (order > kMaxDesignOrder)
        throw Failure(format("the text asks for a filter of order %lld; tolv "
                             "designs up to order %d (widen the transition "
                             "band, or lower As or raise Ap)",
                             order, kMaxDesignOrder));
}

_TOLV_FILTER *createFilterOrFail(const std::string &text)
{
    checkDesignedOrder(text);
    takeLibraryErrors();
    _TOLV_FILTER *filter = createFilter(text);
    if (filter)
        return filter;
    std::string why = takeLibraryErrors();
    if (why.find("Invalid approximation") != std::string::npos)
        why += std::string("; the approximations are ") + kValidApproximations;
    throw Failure(why.empty() ? "the library refused the text: an edge is 0 or "
                                "the edges are out of order, or the order came "
                                "out as 0"
                              : "the library refused the text: " + why);
}

} // namespace cli
