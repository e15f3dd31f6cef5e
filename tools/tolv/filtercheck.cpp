/*
 * Checks a filter must pass before it runs over audio: edges inside the
 * band the sampling rate can hold, and a measured response that keeps its
 * pass band. A design from a text is exactly what the text asks for, and a
 * high order or a narrow transition can ask for a cascade whose float
 * rounding swamps the response (gains of +100 dB and more at DC).
 */
#include <cmath>

#include "cli.h"
#include "filtertext.h"
#include "response.h"

namespace cli {

namespace {
/* How far the pass band may stray beyond Ap (or above 0 dB) before the
 * filter counts as broken: the measurement's bin grid and float rounding
 * read a few hundredths of a dB; a broken cascade misses by tens. */
constexpr float kPassMarginDb = 0.5f;

const char *const kWhatToChange =
    "lower the order or widen the transition band (--force runs it anyway)";

struct Edge {
    const char *kind;
    double fraction;
};
} // namespace

void checkEdgesBelowNyquist(const FilterText &f)
{
    if (f.form != FilterText::Design || f.fs <= 0)
        return;
    const Edge edges[] = {
        {"pass", f.p1}, {"pass", f.p2}, {"stop", f.s1}, {"stop", f.s2}};
    for (const Edge &e : edges)
        if (e.fraction >= 1.0)
            throw Failure(format("the %s edge at %g Hz is at or above half "
                                 "the sampling rate (%g Hz): no digital filter "
                                 "has an edge there",
                                 e.kind, e.fraction * f.fs / 2.0, f.fs / 2.0));
}

void checkPassBand(const Response &r, const FilterText &f)
{
    const std::vector<Band> pass = passBands(f);
    if (pass.empty())
        return;
    float hi = -INFINITY, lo = INFINITY;
    for (const Band &b : pass) {
        hi = std::fmax(hi, r.maxOver(b));
        lo = std::fmin(lo, r.minOver(b));
    }
    const float Ap = float(f.Ap);
    if (hi <= kPassMarginDb && lo >= -Ap - kPassMarginDb)
        return;
    throw Failure(format("the filter misses its pass band: its gain there "
                         "runs from %.2f dB to %.2f dB, beyond Ap of %.3g dB; "
                         "%s",
                         lo, hi, Ap, kWhatToChange));
}

void checkRunnable(const std::string &text, const FilterText &f)
{
    Response r;
    try {
        r = measureResponse(text, f.channels);
    } catch (const Failure &e) {
        throw Failure(std::string(e.what()) + "; " + kWhatToChange);
    }
    checkPassBand(r, f);
}

} // namespace cli
