/*
 * tolv delay: how late one recording is against another, by
 * cross-correlation of the channel averages: the plain correlation, whose
 * peak also gives the correlation coefficient, and the phase transform,
 * which whitens the cross spectrum and so sharpens the peak for coloured
 * or reverberant signals.
 */
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

/* Lag of the highest value of a correlation whose lag 0 stands at `zero`. */
long peakLag(const std::vector<float> &r, long zero)
{
    size_t best = 0;
    for (size_t i = 1; i < r.size(); i++)
        if (r[i] > r[best])
            best = i;
    return long(best) - zero;
}
} // namespace

int runDelay(const Arguments &argv)
{
    Args args(argv, {{"--max-seconds"}, {}});
    if (args.positional().size() != 2)
        throw UsageError("needs two files, A and B");
    double seconds =
        parseReal(args.get("--max-seconds", "30"), "--max-seconds");
    if (!(seconds > 0) || seconds > 3600)
        throw UsageError("--max-seconds must be above 0 and at most 3600");
    AudioReader ra(args.positional()[0]), rb(args.positional()[1]);
    if (ra.rate() != rb.rate())
        throw Failure(
            format("the files have different rates (%d Hz and %d Hz); "
                   "resample one first",
                   ra.rate(), rb.rate()));
    const int rate = ra.rate();
    const int64_t limit = std::llround(seconds * rate);
    std::vector<float> a = ra.readMono(limit), b = rb.readMono(limit);
    for (const auto *x : {&a, &b})
        if (!(energy(*x) > 0.0))
            throw Failure((x == &a ? ra.path() : rb.path()) +
                          " is silent; there is nothing to align");
    auto ms = [rate](long lag) { return 1000.0 * double(lag) / rate; };

    // A positive lag of the correlation means that A is late, so the delay
    // of B is its negative.
    int lag = 0;
    double coefficient =
        TOLV_XcorrCoef(a.data(), int(a.size()), b.data(), int(b.size()), &lag);
    _TOLV_XCORRPROC *proc = TOLV_XcorrProcCreate(int(a.size()), int(b.size()));
    std::vector<float> phat(static_cast<size_t>(TOLV_XcorrVectorLength(proc)));
    TOLV_XcorrPhatProcess(proc, a.data(), b.data(), phat.data());
    TOLV_XcorrProcDestroy(proc);
    const long longest = long(std::max(a.size(), b.size()));
    const long phatDelay = -peakLag(phat, longest - 1);

    std::printf("delay of %s against %s, over %.3f s at %d Hz:\n",
                rb.path().c_str(), ra.path().c_str(),
                double(std::max(a.size(), b.size())) / rate, rate);
    std::printf("coefficient method: %ld samples (%.3f ms), correlation "
                "coefficient %.4f\n",
                -long(lag), ms(-long(lag)), coefficient);
    std::printf("PHAT method: %ld samples (%.3f ms)\n", phatDelay,
                ms(phatDelay));
    return 0;
}

} // namespace cli
