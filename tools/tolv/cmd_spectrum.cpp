/*
 * tolv spectrum: Welch-style average of windowed power spectra, per
 * channel, through the library's windows, FFT processors and dB scaling;
 * or a spectrogram of the channel average.
 */
#include <algorithm>
#include <cmath>
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

/* Strongest local maxima, refined by a parabola through the peak bin and
 * its neighbours in dB: a tone between two bins reads at its own frequency
 * and, for the smooth main lobes of the tapered windows, within a few
 * tenths of a dB of its own level instead of up to the window's scalloping
 * loss below it. */
struct Peak {
    double hz;
    float db;
};
std::vector<Peak> peaks(const std::vector<float> &db, double binHz,
                        float floorDb, size_t count)
{
    std::vector<Peak> found;
    for (size_t k = 1; k + 1 < db.size(); k++) {
        if (!(db[k] > db[k - 1] && db[k] >= db[k + 1]) || db[k] <= floorDb + 1)
            continue;
        double a = db[k - 1], b = db[k], c = db[k + 1];
        double denom = a - 2 * b + c;
        double offset = denom != 0 ? 0.5 * (a - c) / denom : 0.0;
        found.push_back(
            {(double(k) + offset) * binHz, float(b - 0.25 * (a - c) * offset)});
    }
    std::sort(found.begin(), found.end(),
              [](const Peak &x, const Peak &y) { return x.db > y.db; });
    if (found.size() > count)
        found.resize(count);
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

int runSpectrum(const Arguments &argv)
{
    Args args(argv, {{"--window", "--size", "--hop", "--range", "--csv",
                      "--plot", "--spectrogram"},
                     {}});
    if (args.positional().size() != 1)
        throw UsageError("needs one input file");
    const std::string in = args.positional()[0];
    const std::string windowName = args.get("--window", "Hanning");
    const int type = windowType(windowName);
    const long size = parseInteger(args.get("--size", "2048"), "--size");
    if (size < 16 || size > (1 << 20) || size % 2)
        throw UsageError("--size must be even, from 16 to 1048576");
    const long hop =
        parseInteger(args.get("--hop", std::to_string(size / 2)), "--hop");
    if (hop < 1 || hop > size)
        throw UsageError("--hop must be from 1 to the frame size");
    const double range = parseReal(args.get("--range", "120"), "--range");
    if (!(range > 0) || range > 400)
        throw UsageError("--range must be above 0 and at most 400 dB");

    checkOutputs({in}, {args.get("--csv", ""), args.get("--plot", ""),
                        args.get("--spectrogram", "")});
    AudioReader reader(in);
    const int channels = reader.channels(), N = int(size), H = N / 2;
    const size_t bins = size_t(H) + 1;
    const double binHz = double(reader.rate()) / N;

    AlignedFloats window = alignedFloats(size_t(N)),
                  frame = alignedFloats(size_t(N));
    TOLV_CreateWindow(type, window.get(), N);
    const double windowMean = TOLV_GetWindowNormFactor(window.get(), N);
    _TOLV_FFTPROC *fft = TOLV_FFTProcCreate(N);
    TOLV_COMPLEX *scratch = TOLV_CreateComplexVector(fft);
    AlignedFloats psd = alignedFloats(size_t(4 * (N / 8 + 1)));

    // The spectrogram keeps at most 2000 columns and 1024 rows, each the
    // mean power of the frames and bins it covers.
    const bool picture = args.has("--spectrogram");
    const int64_t expectedFrames =
        reader.frames() < N ? 1 : (reader.frames() - N) / hop + 1;
    const int64_t framesPerColumn =
        std::max<int64_t>(1, (expectedFrames + 1999) / 2000);
    const size_t binsPerRow = (bins + 1023) / 1024;
    const size_t rows = (bins + binsPerRow - 1) / binsPerRow;
    std::vector<float> picturePower, columnPower(picture ? rows : 0, 0.0f);
    int64_t inColumn = 0;

    std::vector<std::vector<double>> sum(size_t(channels),
                                         std::vector<double>(bins, 0.0));
    std::vector<float> history; /* interleaved frames not yet dropped */
    std::vector<float> block(size_t(8192) * channels);
    int64_t analysed = 0;
    Progress progress("analysing", reader.frames());
    auto analyse = [&](const float *start) {
        for (int c = 0; c < channels; c++) {
            for (int n = 0; n < N; n++)
                frame[size_t(n)] = start[size_t(n) * channels + c];
            TOLV_ApplyWindow(window.get(), frame.get(), N);
            TOLV_FFTProcExecutePSDEx(fft, frame.get(), psd.get(), scratch);
            for (size_t k = 0; k < bins; k++) {
                sum[size_t(c)][k] += psd[k];
                if (picture)
                    columnPower[k / binsPerRow] +=
                        psd[k] / float(channels * binsPerRow * framesPerColumn);
            }
        }
        analysed++;
        if (picture && ++inColumn == framesPerColumn) {
            picturePower.insert(picturePower.end(), columnPower.begin(),
                                columnPower.end());
            std::fill(columnPower.begin(), columnPower.end(), 0.0f);
            inColumn = 0;
        }
    };
    size_t offset = 0; /* frames of history already behind the next frame */
    for (;;) {
        int64_t got = reader.read(block.data(), 8192);
        if (got == 0)
            break;
        history.insert(history.end(), block.begin(),
                       block.begin() + got * channels);
        size_t have = history.size() / size_t(channels);
        while (offset + size_t(N) <= have) {
            analyse(&history[offset * size_t(channels)]);
            offset += size_t(hop);
        }
        size_t drop = std::min(offset, have);
        history.erase(history.begin(),
                      history.begin() + long(drop * size_t(channels)));
        offset -= drop;
        progress.update(analysed * hop);
    }
    progress.finish();
    if (analysed == 0) {
        // Shorter than one frame: one frame, padded with silence.
        history.resize(size_t(N) * channels, 0.0f);
        analyse(history.data());
    }
    TOLV_DestroyComplexVector(scratch);
    TOLV_FFTProcDestroy(fft);

    std::printf(
        "%s: %lld frames, %d channel%s at %d Hz; %lld analysis frame%s of %d "
        "(%s window, hop %ld), %.*f Hz per bin\n",
        in.c_str(), (long long)reader.framesRead(), channels,
        channels == 1 ? "" : "s", reader.rate(), (long long)analysed,
        analysed == 1 ? "" : "s", N, TOLV_GetWindowName(type), hop,
        decimalsFor(binHz), binHz);
    std::vector<std::vector<float>> db;
    std::vector<float> mean(bins);
    for (int c = 0; c < channels; c++) {
        for (size_t k = 0; k < bins; k++)
            mean[k] = float(sum[size_t(c)][k] / double(analysed));
        db.push_back(toDb(mean.data(), bins, N, windowMean, range));
        std::vector<Peak> top = peaks(db.back(), binHz, float(-range), 3);
        if (top.empty()) {
            std::printf("channel %d: no peak above the floor of -%g dB\n",
                        c + 1, range);
            continue;
        }
        std::printf("channel %d: peak %.2f dB at %.1f Hz", c + 1, top[0].db,
                    top[0].hz);
        for (size_t i = 1; i < top.size(); i++)
            std::printf("%s %.2f dB at %.1f Hz", i == 1 ? "; next" : ",",
                        top[i].db, top[i].hz);
        std::printf("\n");
    }
    if (args.has("--csv")) {
        writeCsv(args.get("--csv", ""), db, binHz);
        std::printf("csv: %s\n", args.get("--csv", "").c_str());
    }
    if (args.has("--plot") && plotAvailable("the spectrum")) {
        std::vector<double> x(bins);
        std::vector<std::string> names;
        for (size_t k = 0; k < bins; k++)
            x[k] = double(k) * binHz;
        for (int c = 0; c < channels; c++)
            names.push_back("channel " + std::to_string(c + 1));
        plotCurves(args.get("--plot", ""), "tolv spectrum: " + in,
                   "frequency (Hz)", "level (dB re full-scale sine)", x, db,
                   names, -range);
        std::printf("plot: %s\n", args.get("--plot", "").c_str());
    }
    if (picture && plotAvailable("the spectrogram")) {
        if (inColumn > 0) {
            // The last column holds fewer frames: its mean over those.
            for (float &p : columnPower)
                p *= float(framesPerColumn) / float(inColumn);
            picturePower.insert(picturePower.end(), columnPower.begin(),
                                columnPower.end());
        }
        const size_t columns = picturePower.size() / rows;
        std::vector<float> levels;
        for (size_t col = 0; col < columns; col++) {
            std::vector<float> d =
                toDb(&picturePower[col * rows], rows, N, windowMean, range);
            levels.insert(levels.end(), d.begin(), d.end());
        }
        const double seconds =
            double(columns * framesPerColumn * hop) / reader.rate();
        plotImage(args.get("--spectrogram", ""),
                  "tolv spectrogram (channel average): " + in, levels,
                  int(columns), int(rows), seconds, reader.rate() / 2.0,
                  -range);
        std::printf("spectrogram: %s\n", args.get("--spectrogram", "").c_str());
    }
    return 0;
}

} // namespace cli
