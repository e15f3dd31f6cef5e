/*
 * tolv spectrum: Welch-style average of windowed power spectra, per
 * channel, through the library's windows, FFT processors and dB scaling;
 * or a spectrogram of the channel average.
 */
#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <strings.h>
#include <unistd.h>

#include "audio.h"
#include "cli.h"
#include "commands.h"
#include "plot.h"
#include "tolv.h"

namespace cli {

namespace {
int windowType(const std::string &name)
{
    int type = TOLV_GetWindowType(name.c_str());
    // An unknown name reads as type 0, which is also the rectangular one.
    if (type != 0 || strcasecmp(name.c_str(), TOLV_GetWindowName(0)) == 0)
        return type;
    std::string names;
    for (int t = 0; TOLV_GetWindowName(t); t++)
        names += std::string(t ? ", " : "") + TOLV_GetWindowName(t);
    throw UsageError("unknown window " + name + "; the windows are " + names);
}

/* Mean powers of `bins` entries to dB relative to a full-scale sine through
 * the library's scaling. That scaling divides by h^2, h being half its
 * frame length, and by the square root of the reference; a sine of
 * amplitude A in a frame of N samples under a window of mean c gives a
 * power of (A N c / 2)^2, so the reference is chosen to leave A^2. */
std::vector<float> toDb(const float *power, size_t bins, int frameLength,
                        double windowMean, double range)
{
    const double h = double((bins - 1)), H = double(frameLength / 2);
    const double amplitudeScale = H * H * windowMean * windowMean / (h * h);
    AlignedFloats in = alignedFloats(bins + 8), out = alignedFloats(bins + 8);
    std::copy(power, power + bins, in.get());
    TOLV_PSDtoDB(int(2 * (bins - 1)), in.get(), out.get(), nullptr,
                 amplitudeScale * amplitudeScale, range);
    return std::vector<float>(out.get(), out.get() + bins);
}

/* The analysis window as a tone sees it. */
struct Lobe {
    const float *window;
    int N;
    /* Level for a tone `offset` bins from a bin's centre, relative to the
     * centre, in dB: |sum w[n] exp(-j 2 pi offset n / N)| / sum w[n]. */
    double db(double offset) const
    {
        const std::complex<double> step =
            std::polar(1.0, -2.0 * M_PI * offset / double(N));
        std::complex<double> turn = 1.0, sum = 0.0;
        double dc = 0.0;
        for (int n = 0; n < N; n++, turn *= step) {
            sum += double(window[n]) * turn;
            dc += double(window[n]);
        }
        return 20.0 * std::log10(std::abs(sum) / dc);
    }
    /* Level of the bin above the tone's bin less that of the bin below,
     * for a tone `offset` bins above its bin's centre. */
    double sideGap(double offset) const
    {
        return db(1.0 - offset) - db(1.0 + offset);
    }
};

/* The tone's offset that makes the lobe give the neighbours' measured
 * level gap: secant steps from the parabola's estimate, which is biased
 * for lobes far from a parabola in dB (flat tops, the rectangle). */
double refineOffset(const Lobe &lobe, double offset, double gap)
{
    double x0 = offset, g0 = lobe.sideGap(x0) - gap;
    double x1 = offset > 0 ? offset - 0.01 : offset + 0.01;
    double g1 = lobe.sideGap(x1) - gap;
    for (int i = 0; i < 4 && std::isfinite(g0 - g1) && g0 != g1; i++) {
        const double x2 =
            std::clamp(x1 - g1 * (x1 - x0) / (g1 - g0), -0.5, 0.5);
        x0 = x1, g0 = g1, x1 = x2, g1 = lobe.sideGap(x2) - gap;
    }
    return std::isfinite(g1) && std::fabs(g1) < std::fabs(g0) ? x1 : x0;
}

/* A tone: its frequency and level. */
struct Peak {
    double hz;
    float db;
};

/* The tone at local maximum k. A parabola through the bin and its
 * neighbours in dB, refined on the window's own lobe, places it between
 * the bins; the bin, raised by the lobe's loss at that distance from its
 * centre, gives its level instead of up to the window's scalloping loss
 * below it. */
Peak refinePeak(const std::vector<float> &db, size_t k, double binHz,
                const Lobe &lobe)
{
    double a = db[k - 1], b = db[k], c = db[k + 1];
    double denom = a - 2 * b + c;
    double offset = denom != 0 ? 0.5 * (a - c) / denom : 0.0;
    offset = refineOffset(lobe, offset, c - a);
    return {(double(k) + offset) * binHz, float(b - lobe.db(offset))};
}

/* The `count` strongest tones among the local maxima above the floor. */
std::vector<Peak> peaks(const std::vector<float> &db, double binHz,
                        float floorDb, size_t count, const Lobe &lobe)
{
    std::vector<size_t> maxima;
    for (size_t k = 1; k + 1 < db.size(); k++)
        if (db[k] > db[k - 1] && db[k] >= db[k + 1] && db[k] > floorDb + 1)
            maxima.push_back(k);
    std::sort(maxima.begin(), maxima.end(),
              [&](size_t x, size_t y) { return db[x] > db[y]; });
    const auto stronger = [](const Peak &x, const Peak &y) {
        return x.db > y.db;
    };
    std::vector<Peak> found;
    for (size_t k : maxima) {
        // A tone reads at least at its bin's level: once the bins fall
        // below the weakest tone kept, no later one can take its place.
        if (found.size() == count && db[k] < found.back().db)
            break;
        found.push_back(refinePeak(db, k, binHz, lobe));
        std::sort(found.begin(), found.end(), stronger);
        if (found.size() > count)
            found.pop_back();
    }
    return found;
}

/* Decimals that show at least four significant digits of a small value,
 * three of a large one. */
int decimalsFor(double value)
{
    int decimals = 3;
    while (decimals < 12 && value > 0 && value < std::pow(10.0, 3 - decimals))
        decimals++;
    return decimals;
}

struct CsvTable {
    const std::vector<std::vector<float>> &db;
    double binHz;
};

void printCsv(FILE *f, const void *context)
{
    const CsvTable &t = *static_cast<const CsvTable *>(context);
    std::fprintf(f, "frequency_hz");
    for (size_t c = 0; c < t.db.size(); c++)
        std::fprintf(f, ",channel_%zu_db", c + 1);
    std::fputc('\n', f);
    for (size_t k = 0; k < t.db[0].size(); k++) {
        std::fprintf(f, "%.4f", double(k) * t.binHz);
        for (const auto &ch : t.db)
            std::fprintf(f, ",%.3f", ch[k]);
        std::fputc('\n', f);
    }
}

void writeCsv(const std::string &path,
              const std::vector<std::vector<float>> &db, double binHz)
{
    CsvTable table{db, binHz};
    writeTextFile(path, printCsv, &table);
}
} // namespace

namespace {

struct SpectrumOptions {
    std::string in, csv, plot, spectrogram;
    int type = 0;
    long size = 2048, hop = 1024;
    double range = 120;
};

SpectrumOptions parseSpectrum(const Arguments &argv)
{
    Args args(argv, {{"--window", "--size", "--hop", "--range", "--csv",
                      "--plot", "--spectrogram"},
                     {}});
    if (args.positional().size() != 1)
        throw UsageError("needs one input file");
    SpectrumOptions o;
    o.in = args.positional()[0];
    o.type = windowType(args.get("--window", "Hanning"));
    o.size = parseInteger(args.get("--size", "2048"), "--size");
    if (o.size < 16 || o.size > (1 << 20) || o.size % 2)
        throw UsageError("--size must be even, from 16 to 1048576");
    o.hop =
        parseInteger(args.get("--hop", std::to_string(o.size / 2)), "--hop");
    if (o.hop < 1 || o.hop > o.size)
        throw UsageError("--hop must be from 1 to the frame size");
    o.range = parseReal(args.get("--range", "120"), "--range");
    if (!(o.range > 0) || o.range > 400)
        throw UsageError("--range must be above 0 and at most 400 dB");
    o.csv = args.get("--csv", "");
    o.plot = args.get("--plot", "");
    o.spectrogram = args.get("--spectrogram", "");
    return o;
}

/* The spectrogram keeps at most 2000 columns and 1024 rows, each the mean
 * power of the frames and bins it covers. */
struct Spectrogram {
    bool on;
    int64_t framesPerColumn;
    size_t binsPerRow, rows;
    std::vector<float> power, column;
    int64_t inColumn = 0;
    Spectrogram(bool on, int64_t expectedFrames, size_t bins)
        : on(on),
          framesPerColumn(std::max<int64_t>(1, (expectedFrames + 1999) / 2000)),
          binsPerRow((bins + 1023) / 1024),
          rows((bins + binsPerRow - 1) / binsPerRow), column(on ? rows : 0)
    {}
    void add(const float *psd, size_t bins, int channels)
    {
        for (size_t k = 0; on && k < bins; k++)
            column[k / binsPerRow] +=
                psd[k] / float(channels * binsPerRow * framesPerColumn);
    }
    void endFrame()
    {
        if (!on || ++inColumn != framesPerColumn)
            return;
        power.insert(power.end(), column.begin(), column.end());
        std::fill(column.begin(), column.end(), 0.0f);
        inColumn = 0;
    }
    /* The last column holds fewer frames: its mean over those. */
    void finish()
    {
        if (inColumn == 0)
            return;
        for (float &p : column)
            p *= float(framesPerColumn) / float(inColumn);
        power.insert(power.end(), column.begin(), column.end());
    }
};

/* Windowed power spectra of every channel, summed per bin. */
struct Analyser {
    int channels, N;
    size_t bins;
    AlignedFloats window, frame, psd;
    double windowMean;
    _TOLV_FFTPROC *fft;
    TOLV_COMPLEX *scratch;
    std::vector<std::vector<double>> sum;
    int64_t analysed = 0;
    Spectrogram picture;
    Analyser(int channels, int N, int type, bool spectrogram,
             int64_t inputFrames, long hop)
        : channels(channels), N(N), bins(size_t(N / 2) + 1),
          window(alignedFloats(size_t(N))), frame(alignedFloats(size_t(N))),
          psd(alignedFloats(size_t(4 * (N / 8 + 1)))),
          windowMean((TOLV_CreateWindow(type, window.get(), N),
                      TOLV_GetWindowNormFactor(window.get(), N))),
          fft(TOLV_FFTProcCreate(N)), scratch(TOLV_CreateComplexVector(fft)),
          sum(size_t(channels), std::vector<double>(bins, 0.0)),
          picture(spectrogram,
                  inputFrames < N ? 1 : (inputFrames - N) / hop + 1, bins)
    {}
    ~Analyser()
    {
        TOLV_DestroyComplexVector(scratch);
        TOLV_FFTProcDestroy(fft);
    }
    /* One analysis frame of interleaved samples from `start`. */
    void analyse(const float *start)
    {
        for (int c = 0; c < channels; c++) {
            for (int n = 0; n < N; n++)
                frame[size_t(n)] = start[size_t(n) * channels + c];
            TOLV_ApplyWindow(window.get(), frame.get(), N);
            TOLV_FFTProcExecutePSDEx(fft, frame.get(), psd.get(), scratch);
            for (size_t k = 0; k < bins; k++)
                sum[size_t(c)][k] += psd[k];
            picture.add(psd.get(), bins, channels);
        }
        analysed++;
        picture.endFrame();
    }
};

/* Every frame of the file, hop apart; a file shorter than one frame gives
 * one frame padded with silence. */
void analyseFile(AudioReader &reader, Analyser &a, long hop)
{
    const int channels = a.channels;
    std::vector<float> history; /* interleaved frames not yet dropped */
    std::vector<float> block(size_t(8192) * channels);
    Progress progress("analysing", reader.frames());
    size_t offset = 0; /* frames of history already behind the next frame */
    for (int64_t got; (got = reader.read(block.data(), 8192)) != 0;) {
        history.insert(history.end(), block.begin(),
                       block.begin() + got * channels);
        size_t have = history.size() / size_t(channels);
        for (; offset + size_t(a.N) <= have; offset += size_t(hop))
            a.analyse(&history[offset * size_t(channels)]);
        size_t drop = std::min(offset, have);
        history.erase(history.begin(),
                      history.begin() + long(drop * size_t(channels)));
        offset -= drop;
        progress.update(a.analysed * hop);
    }
    progress.finish();
    if (a.analysed == 0) {
        const int64_t have = reader.framesRead();
        std::fprintf(stderr,
                     "tolv spectrum: warning: %s has %lld frames, fewer than "
                     "one analysis frame of %d; it is analysed padded with "
                     "silence, so its levels read low; use a smaller "
                     "--size\n",
                     reader.path().c_str(), (long long)have, a.N);
        history.resize(size_t(a.N) * channels, 0.0f);
        a.analyse(history.data());
    }
}

/* Mean levels per channel in dB, with the three highest peaks of each. */
std::vector<std::vector<float>>
reportPeaks(const Analyser &a, const SpectrumOptions &o, double binHz)
{
    std::vector<std::vector<float>> db;
    std::vector<float> mean(a.bins);
    for (int c = 0; c < a.channels; c++) {
        for (size_t k = 0; k < a.bins; k++)
            mean[k] = float(a.sum[size_t(c)][k] / double(a.analysed));
        db.push_back(toDb(mean.data(), a.bins, a.N, a.windowMean, o.range));
        std::vector<Peak> top =
            peaks(db.back(), binHz, float(-o.range), 3, {a.window.get(), a.N});
        if (top.empty()) {
            std::printf("channel %d: no peak above the floor of -%g dB\n",
                        c + 1, o.range);
            continue;
        }
        std::printf("channel %d: peak %.2f dB at %.1f Hz", c + 1, top[0].db,
                    top[0].hz);
        for (size_t i = 1; i < top.size(); i++)
            std::printf("%s %.2f dB at %.1f Hz", i == 1 ? "; next" : ",",
                        top[i].db, top[i].hz);
        std::printf("\n");
    }
    return db;
}

void plotSpectrum(const SpectrumOptions &o,
                  const std::vector<std::vector<float>> &db, double binHz)
{
    std::vector<double> x(db[0].size());
    std::vector<std::string> names;
    for (size_t k = 0; k < x.size(); k++)
        x[k] = double(k) * binHz;
    for (size_t c = 0; c < db.size(); c++)
        names.push_back("channel " + std::to_string(c + 1));
    plotCurves(o.plot, "tolv spectrum: " + o.in, "frequency (Hz)",
               "level (dB re full-scale sine)", x, db, names, -o.range);
    std::printf("plot: %s\n", o.plot.c_str());
}

void plotSpectrogram(const SpectrumOptions &o, Analyser &a, int rate)
{
    Spectrogram &g = a.picture;
    g.finish();
    const size_t columns = g.power.size() / g.rows;
    std::vector<float> levels;
    for (size_t col = 0; col < columns; col++) {
        std::vector<float> d =
            toDb(&g.power[col * g.rows], g.rows, a.N, a.windowMean, o.range);
        levels.insert(levels.end(), d.begin(), d.end());
    }
    const double seconds = double(columns * g.framesPerColumn * o.hop) / rate;
    plotImage(o.spectrogram, "tolv spectrogram (channel average): " + o.in,
              levels, int(columns), int(g.rows), seconds, rate / 2.0, -o.range);
    std::printf("spectrogram: %s\n", o.spectrogram.c_str());
}

} // namespace

int runSpectrum(const Arguments &argv)
{
    const SpectrumOptions o = parseSpectrum(argv);
    checkOutputs({o.in}, {o.csv, o.plot, o.spectrogram});
    AudioReader reader(o.in);
    const int channels = reader.channels(), N = int(o.size);
    const double binHz = double(reader.rate()) / N;
    Analyser a(channels, N, o.type, !o.spectrogram.empty(), reader.frames(),
               o.hop);
    analyseFile(reader, a, o.hop);

    std::printf(
        "%s: %lld frames, %d channel%s at %d Hz; %lld analysis frame%s of %d "
        "(%s window, hop %ld), %.*f Hz per bin\n",
        o.in.c_str(), (long long)reader.framesRead(), channels,
        channels == 1 ? "" : "s", reader.rate(), (long long)a.analysed,
        a.analysed == 1 ? "" : "s", N, TOLV_GetWindowName(o.type), o.hop,
        decimalsFor(binHz), binHz);
    const std::vector<std::vector<float>> db = reportPeaks(a, o, binHz);
    if (!o.csv.empty()) {
        writeCsv(o.csv, db, binHz);
        std::printf("csv: %s\n", o.csv.c_str());
    }
    if (!o.plot.empty() && plotAvailable("the spectrum"))
        plotSpectrum(o, db, binHz);
    if (!o.spectrogram.empty() && plotAvailable("the spectrogram"))
        plotSpectrogram(o, a, reader.rate());
    return 0;
}

} // namespace cli
