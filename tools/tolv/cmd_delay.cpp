/*
 * tolv delay: how late one recording is against another, by
 * cross-correlation of the channel averages: the plain correlation, whose
 * peak also gives the correlation coefficient, and the phase transform,
 * which whitens the cross spectrum and so sharpens the peak for coloured
 * or reverberant signals.
 */
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "audio.h"
#include "cli.h"
#include "commands.h"
#include "tolv.h"

namespace cli {

namespace {
double energy(const std::vector<float> &x)
{
    double sum = 0.0;
    for (float v : x)
        sum += double(v) * v;
    return sum;
}

/* Lag of the largest magnitude of a correlation whose lag 0 stands at
 * `zero`: an inverted copy peaks downwards. */
long peakLag(const std::vector<float> &r, long zero)
{
    size_t best = 0;
    for (size_t i = 1; i < r.size(); i++)
        if (std::fabs(r[i]) > std::fabs(r[best]))
            best = i;
    return long(best) - zero;
}
/* Bytes the correlations take: both transforms run at the power of two
 * above the combined length, and hold about 24 bytes per point. */
constexpr int64_t kDelayBudgetBytes = int64_t(2) << 30;
int64_t correlationBytes(int64_t points)
{
    int64_t n = 1;
    while (n < points)
        n *= 2;
    return 24 * n;
}

/* Refuses a search whose correlations would not fit the budget, with the
 * longest --max-seconds that does. */
void checkDelayMemory(const AudioReader &a, const AudioReader &b, int64_t limit,
                      double seconds)
{
    auto used = [limit](const AudioReader &r) {
        return r.frames() < 0 ? limit : std::min(limit, r.frames());
    };
    const int64_t need = correlationBytes(used(a) + used(b));
    if (need <= kDelayBudgetBytes)
        return;
    int64_t fits = kDelayBudgetBytes / 24;
    fits = int64_t(1) << (63 - __builtin_clzll(uint64_t(fits)));
    throw Failure(format("searching %g s at %d Hz would take about %.1f GB; "
                         "use --max-seconds %lld or less",
                         seconds, a.rate(), double(need) / 1e9,
                         (long long)(fits / (2 * int64_t(a.rate())))));
}

/* The sign of the correlation at the lag found, where A runs `lag`
 * samples behind B: the coefficient's magnitude is the same for a copy and
 * an inverted copy. */
double polarity(const std::vector<float> &a, const std::vector<float> &b,
                long lag)
{
    double dot = 0.0;
    for (size_t n = 0; n < b.size(); n++) {
        const long m = long(n) + lag;
        if (m >= 0 && m < long(a.size()))
            dot += double(a[size_t(m)]) * b[n];
    }
    return dot;
}

/* Refuses a silent span, naming what was searched. */
void checkNotSilent(const std::vector<float> &x, const AudioReader &r,
                    int64_t limit)
{
    const double e = energy(x);
    if (std::isnan(e) || std::isinf(e))
        throw Failure(r.path() + " holds non-finite samples in the span "
                                 "searched; nothing can be aligned");
    if (e > 0.0)
        return;
    if (r.frames() >= 0 && r.frames() <= limit)
        throw Failure(r.path() + " is silent; there is nothing to align");
    throw Failure(format("the first %.3f s of %s (the span searched) are "
                         "silent; raise --max-seconds to search further",
                         double(x.size()) / r.rate(), r.path().c_str()));
}
/* Both correlations around lag zero, for a picture of the peak: every
 * delay of B within `span` frames, the plain correlation divided by the
 * root of both mean squares (the coefficient's own scaling, with its sign)
 * and PHAT divided by its own highest value. */
struct CorrelationTable {
    const std::vector<float> &plain, &phat;
    long zero, span;
    double plainScale, phatScale;
    int rate;
};

void printCorrelations(FILE *f, const void *context)
{
    const CorrelationTable &t = *static_cast<const CorrelationTable *>(context);
    std::fprintf(f, "delay_frames,delay_ms,coefficient,phat\n");
    const long size = long(t.plain.size());
    for (long d = -t.span; d <= t.span; d++) {
        const long i = t.zero - d; /* a delay of B is a negative lag */
        if (i < 0 || i >= size)
            continue;
        std::fprintf(f, "%ld,%.4f,%.6f,%.6f\n", d, 1000.0 * double(d) / t.rate,
                     t.plain[size_t(i)] * t.plainScale,
                     t.phat[size_t(i)] * t.phatScale);
    }
}

void writeCorrelations(const std::string &csv, _TOLV_XCORRPROC *proc,
                       const std::vector<float> &a, const std::vector<float> &b,
                       const std::vector<float> &phat, int rate)
{
    std::vector<float> plain(phat.size());
    TOLV_XcorrProcExecute(proc, a.data(), b.data(), plain.data());
    const double meanSquares =
        energy(a) / double(a.size()) * (energy(b) / double(b.size()));
    const float phatPeak = *std::max_element(phat.begin(), phat.end());
    CorrelationTable table{plain,
                           phat,
                           long(std::max(a.size(), b.size())) - 1,
                           std::lround(0.1 * rate),
                           1.0 / std::sqrt(meanSquares),
                           phatPeak > 0 ? 1.0 / phatPeak : 1.0,
                           rate};
    writeTextFile(csv, printCorrelations, &table);
}
} // namespace

int runDelay(const Arguments &argv)
{
    Args args(argv, {{"--max-seconds", "--csv"}, {}});
    if (args.positional().size() != 2)
        throw UsageError("needs two files, A and B");
    double seconds =
        parseReal(args.get("--max-seconds", "30"), "--max-seconds");
    if (!(seconds > 0) || seconds > 3600)
        throw UsageError("--max-seconds must be above 0 and at most 3600");
    AudioReader ra(args.positional()[0]), rb(args.positional()[1]);
    const std::string csv = args.get("--csv", "");
    checkOutputs({ra.path(), rb.path()}, {csv});
    if (ra.rate() != rb.rate())
        throw Failure(
            format("the files have different rates (%d Hz and %d Hz); "
                   "resample one first",
                   ra.rate(), rb.rate()));
    const int rate = ra.rate();
    const int64_t limit = std::llround(seconds * rate);
    checkDelayMemory(ra, rb, limit, seconds);
    std::vector<float> a = ra.readMono(limit), b = rb.readMono(limit);
    checkNotSilent(a, ra, limit);
    checkNotSilent(b, rb, limit);
    auto ms = [rate](long lag) { return 1000.0 * double(lag) / rate; };

    // A positive lag of the correlation means that A is late, so the delay
    // of B is its negative.
    int lag = 0;
    double coefficient =
        TOLV_XcorrCoef(a.data(), int(a.size()), b.data(), int(b.size()), &lag);
    _TOLV_XCORRPROC *proc = TOLV_XcorrProcCreate(int(a.size()), int(b.size()));
    std::vector<float> phat(static_cast<size_t>(TOLV_XcorrVectorLength(proc)));
    TOLV_XcorrPhatProcess(proc, a.data(), b.data(), phat.data());
    if (!csv.empty())
        writeCorrelations(csv, proc, a, b, phat, rate);
    TOLV_XcorrProcDestroy(proc);
    const long longest = long(std::max(a.size(), b.size()));
    const long phatDelay = -peakLag(phat, longest - 1);

    std::printf("delay of %s against %s, over %.3f s at %d Hz:\n",
                rb.path().c_str(), ra.path().c_str(),
                double(std::max(a.size(), b.size())) / rate, rate);
    const bool inverted = polarity(a, b, lag) < 0.0;
    std::printf("coefficient method: %ld samples (%.3f ms), correlation "
                "coefficient %+.4f%s\n",
                -long(lag), ms(-long(lag)),
                inverted ? -coefficient : coefficient,
                inverted ? " (inverted: B is A upside down)" : "");
    std::printf("PHAT method: %ld samples (%.3f ms)\n", phatDelay,
                ms(phatDelay));
    if (!csv.empty())
        std::printf("csv: %s\n", csv.c_str());
    return 0;
}

} // namespace cli
