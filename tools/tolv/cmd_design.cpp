/*
 * tolv design: builds the filter of a text and reports what it does, all
 * measured on the running filter.
 */
#include <cmath>
#include <cstdio>

#include "audio.h"
#include "cli.h"
#include "commands.h"
#include "TOLVfilter/design_describe.h"
#include "filtertext.h"
#include "plot.h"
#include "response.h"

namespace cli {

namespace {
/* A frequency given as a fraction of Nyquist, in Hz when fs is known. */
std::string frequency(double fraction, int fs)
{
    if (fs > 0)
        return format("%.1f Hz", fraction * fs / 2.0);
    return format("%.4f x Nyquist", fraction);
}

std::string level(float db)
{
    if (db <= -kResponseFloorDb + 0.05)
        return format("below -%.0f dB", kResponseFloorDb);
    // Rounding leaves a gain of 1 a hair below or above 0 dB; "-0.00" would
    // only puzzle.
    return format("%.2f dB", std::fabs(db) < 0.005f ? 0.0f : db);
}

std::string bandList(const std::vector<Band> &bands, int fs)
{
    std::string out;
    for (const Band &b : bands)
        out += (out.empty() ? "" : " and ") + frequency(b.lo, fs) + " to " +
               frequency(b.hi, fs);
    return out;
}

std::string formName(const FilterText &f)
{
    switch (f.form) {
    case FilterText::Sections:
        return "second-order sections from the text";
    case FilterText::DirectForm:
        return "direct form II from the text";
    default:
        return std::string(typeName(f.typeCode)) + ", " + f.approximation;
    }
}
} // namespace

namespace {

/* The text in the library's spelling, with --fs in front (the first
 * occurrence of a key wins). */
std::string designText(const Args &args)
{
    std::string text = normalizeFilterText(args.positional()[0]);
    if (args.has("--fs")) {
        long fs = parseInteger(args.get("--fs", ""), "--fs");
        if (fs <= 0)
            throw UsageError("--fs must be positive");
        text = format("fs=%ld, ", fs) + text;
    }
    return text;
}

void reportForm(const FilterText &spec, const std::string &text)
{
    const int fs = spec.fs;
    std::printf("filter: %s, %d channel%s%s\n", formName(spec).c_str(),
                spec.channels, spec.channels == 1 ? "" : "s",
                fs > 0 ? format(", fs %d Hz", fs).c_str() : "");
    if (spec.form == FilterText::Design) {
        const long long order = _DescribedOrder(text.c_str());
        const long long sections = (order + 1) / 2;
        std::printf("order %lld, %lld section%s\n", order, sections,
                    sections == 1 ? "" : "s");
    } else if (spec.form == FilterText::Sections) {
        std::printf("order %d, %zu sections\n", explicitOrder(spec),
                    spec.biquads.size() / 5);
    } else {
        std::printf("order %d (numerator %zu, denominator %zu coefficients)\n",
                    explicitOrder(spec), spec.numerator.size(),
                    spec.denominator.size());
    }
}

/* Gains at the ends and the peak, and the -3 dB points; returns the peak. */
float reportGains(const Response &r, int fs)
{
    size_t peakBin = 0;
    for (size_t k = 0; k < r.db.size(); k++)
        if (r.db[k] > r.db[peakBin])
            peakBin = k;
    const float peak = r.db[peakBin];
    std::printf("gain at DC: %s\n", level(r.db.front()).c_str());
    std::printf("gain at Nyquist (%s): %s\n", frequency(1.0, fs).c_str(),
                level(r.db.back()).c_str());
    std::printf("peak gain: %s at %s\n", level(peak).c_str(),
                frequency(r.fraction(peakBin), fs).c_str());
    std::vector<double> points = r.crossings(peak - 3.0f);
    std::string list;
    for (size_t i = 0; i < points.size() && i < 8; i++)
        list += (i ? ", " : "") + frequency(points[i], fs);
    if (points.size() > 8)
        list += format(" and %zu more", points.size() - 8);
    std::printf("-3 dB points (3 dB below the peak): %s\n",
                list.empty() ? "none" : list.c_str());
    return peak;
}

void reportBands(const Response &r, const FilterText &spec, float peak)
{
    const int fs = spec.fs;
    std::vector<Band> pass = passBands(spec), stop = stopBands(spec);
    if (!pass.empty()) {
        float hi = -INFINITY, lo = INFINITY;
        for (const Band &b : pass) {
            hi = std::fmax(hi, r.maxOver(b));
            lo = std::fmin(lo, r.minOver(b));
        }
        std::printf("passband %s: ripple %.3f dB (Ap %.3g dB)\n",
                    bandList(pass, fs).c_str(), hi - lo, spec.Ap);
    }
    if (!stop.empty()) {
        float worst = -INFINITY;
        for (const Band &b : stop)
            worst = std::fmax(worst, r.maxOver(b));
        std::printf(
            "stopband %s: at most %s, %.2f dB below the peak%s\n",
            bandList(stop, fs).c_str(), level(worst).c_str(), peak - worst,
            spec.As > 0 ? format(" (As %.3g dB)", spec.As).c_str() : "");
    } else if (spec.form == FilterText::Design) {
        std::printf("stopband: the text gives no stop edge\n");
    }
    std::printf("measured on %d samples of the impulse response%s\n", r.length,
                r.settled ? "" : " (still ringing at the end)");
}

void plotResponse(const Args &args, const Response &r, int fs, float peak)
{
    std::string png = args.get("--plot", "");
    std::vector<double> x(r.db.size());
    for (size_t k = 0; k < x.size(); k++)
        x[k] = fs > 0 ? r.fraction(k) * fs / 2.0 : r.fraction(k);
    float floorDb =
        std::fmax(-kResponseFloorDb, std::floor(peak / 10.0f) * 10.0f - 140.0f);
    plotCurves(png, "tolv design: " + args.positional()[0],
               fs > 0 ? "frequency (Hz)" : "frequency (x Nyquist)",
               "magnitude (dB)", x, {r.db}, {"magnitude"}, floorDb);
    std::printf("plot: %s\n", png.c_str());
}

/* The template a design text sets, relative to the peak: the passband
 * between the peak and Ap below it, the stopbands at least As below it.
 * Each row holds the response and, where a band covers its bin, the
 * template's upper and lower level there (blank elsewhere). */
struct ResponseTable {
    const Response &r;
    const FilterText &spec;
    float peak;
};

bool inAny(const std::vector<Band> &bands, double fraction)
{
    for (const Band &b : bands)
        if (fraction >= b.lo && fraction <= b.hi)
            return true;
    return false;
}

void printResponse(FILE *f, const void *context)
{
    const ResponseTable &t = *static_cast<const ResponseTable *>(context);
    const int fs = t.spec.fs;
    const std::vector<Band> pass = passBands(t.spec), stop = stopBands(t.spec);
    std::fprintf(f,
                 "%s,magnitude_db,phase_deg,template_upper_db,"
                 "template_lower_db\n",
                 fs > 0 ? "frequency_hz" : "frequency_x_nyquist");
    for (size_t k = 0; k < t.r.db.size(); k++) {
        const double x = t.r.fraction(k);
        std::fprintf(f, "%.4f,%.3f,%.2f,", fs > 0 ? x * fs / 2.0 : x, t.r.db[k],
                     t.r.phase[k] * 180.0 / M_PI);
        if (inAny(pass, x))
            std::fprintf(f, "%.3f,%.3f\n", t.peak, t.peak - t.spec.Ap);
        else if (t.spec.As > 0 && inAny(stop, x))
            std::fprintf(f, "%.3f,\n", t.peak - t.spec.As);
        else
            std::fprintf(f, ",\n");
    }
}

void writeResponse(const std::string &csv, const Response &r,
                   const FilterText &spec, float peak)
{
    ResponseTable table{r, spec, peak};
    writeTextFile(csv, printResponse, &table);
    std::printf("csv: %s\n", csv.c_str());
}

} // namespace

int runDesign(const Arguments &argv)
{
    Args args(argv, {{"--fs", "--plot", "--csv"}, {}});
    if (args.positional().size() != 1)
        throw UsageError("needs exactly one filter text");
    const std::string text = designText(args);
    checkOutputs({}, {args.get("--plot", ""), args.get("--csv", "")});
    FilterText spec = readFilterText(text);
    if (spec.channels < 1)
        throw Failure("the text asks for " + std::to_string(spec.channels) +
                      " channels");
    checkEdgesBelowNyquist(spec);
    TOLV_DestroyFilter(createFilterOrFail(text));

    Response r = measureResponse(text, spec.channels);
    reportForm(spec, text);
    const float peak = reportGains(r, spec.fs);
    reportBands(r, spec, peak);
    if (args.has("--csv"))
        writeResponse(args.get("--csv", ""), r, spec, peak);
    if (args.has("--plot") && plotAvailable("the response"))
        plotResponse(args, r, spec.fs, peak);
    return 0;
}

} // namespace cli
