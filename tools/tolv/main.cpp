/*
 * tolv: the library's analysis, filter, rate-conversion and time-scale
 * families over audio files.
 */
#include <cstdio>
#include <cstring>

#include "audio.h"
#include "cli.h"
#include "commands.h"
#include "tolv.h"

namespace cli {

const Command kCommands[] = {
    {"info", "version, FFT wisdom, optional helpers",
     "usage: tolv info\n"
     "\n"
     "Shows the library's version, where the FFT wisdom is kept\n"
     "($KEEL_DATA_PATH/brae.optimization) and whether it was found, and\n"
     "which optional helpers (gnuplot) are installed.\n"
     "\n"
     "example:\n"
     "  KEEL_DATA_PATH=~/.local/share/tolv tolv info\n",
     runInfo},
    {"design", "design a filter from a text and measure it",
     "usage: tolv design SPEC [--fs RATE] [--plot FILE.png] [--csv FILE]\n"
     "\n"
     "Designs the filter that the text SPEC describes and measures the\n"
     "running filter's impulse response: order and sections, gain at DC and\n"
     "Nyquist, the -3 dB points, passband ripple and stopband floor.\n"
     "\n"
     "  --fs RATE        sampling rate in Hz for edges given in Hz (wins over\n"
     "                   an fs in the text)\n"
     "  --plot FILE.png  draw the magnitude response (needs gnuplot)\n"
     "  --csv FILE       write the response: frequency, magnitude (dB), phase\n"
     "                   (degrees), and the template of the text's bands\n"
     "                   relative to the peak (upper and lower level, in dB)\n"
     "\n"
     "example:\n"
     "  tolv design 'type=bandpass, approximation=ellip, fpass1=300,\n"
     "    fpass2=3400, fstop1=200, fstop2=4000, Ap=1, As=60' --fs 16000\n",
     runDesign},
    {"filter", "filter a file with a designed or explicit filter",
     "usage: tolv filter IN OUT SPEC [--encoding ENC] [--force]\n"
     "\n"
     "Filters IN into OUT with the filter of the text SPEC. The sampling\n"
     "rate (fs) and the channel count come from IN unless SPEC gives them.\n"
     "The filter is measured first: an unstable one, or one whose pass\n"
     "band strays beyond Ap by more than 0.5 dB, is refused.\n"
     "\n"
     "  --encoding ENC   pcm16, pcm24, pcm32, float or double (default: as "
     "IN)\n"
     "  --force          run the filter even when the measurement refuses it\n"
     "\n"
     "example:\n"
     "  tolv filter speech.wav low.wav 'type=lowpass, fpass=3000, order=6'\n",
     runFilter},
    {"resample", "convert the sampling rate",
     "usage: tolv resample IN OUT --rate R [--type polyphase|zoh]\n"
     "                     [--quality Q | --order N] [--encoding ENC]\n"
     "                     [--verbose]\n"
     "\n"
     "Converts IN to the rate R, block by block, and drains the converter at\n"
     "the end; OUT has round(frames * R / rate of IN) frames.\n"
     "\n"
     "  --rate R         output rate in Hz\n"
     "  --type T         polyphase (default; any pair of rates) or zoh (pairs\n"
     "                   of 8000, 11025, 16000, 22050, 32000, 44100, 48000,\n"
     "                   96000 Hz)\n"
     "  --quality Q      low, medium, high (default) or very-high: the\n"
     "                   polyphase orders 16, 64, 128 and 256\n"
     "  --order N        polyphase half-length in units of the rate ratio\n"
     "  --verbose        print the converter's figures and the fixed shift\n"
     "                   (a fraction of an output frame) it leaves\n"
     "  --encoding ENC   pcm16, pcm24, pcm32, float or double (default: as "
     "IN)\n"
     "\n"
     "example:\n"
     "  tolv resample take.wav take48.wav --rate 48000\n",
     runResample},
    {"stretch", "change the duration, keep the pitch",
     "usage: tolv stretch IN OUT --speed S [--frame-ms MS] [--encoding ENC]\n"
     "                    [--cursor FILE]\n"
     "\n"
     "Plays IN S times faster without changing its pitch (SOLAFS): S above 1\n"
     "shortens, below 1 lengthens. OUT has round(frames / S) frames.\n"
     "\n"
     "  --speed S        speed factor, above 0 and at most 3\n"
     "  --frame-ms MS    analysis frame in milliseconds (default 20)\n"
     "  --encoding ENC   pcm16, pcm24, pcm32, float or double (default: as "
     "IN)\n"
     "  --cursor FILE    write, for the start of every output block, the\n"
     "                   source frame it came from (the engine's cursor\n"
     "                   translation) as CSV\n"
     "\n"
     "example:\n"
     "  tolv stretch lecture.flac faster.flac --speed 1.25\n",
     runStretch},
    {"spectrum", "average spectrum in dB, or a spectrogram",
     "usage: tolv spectrum IN [--window NAME] [--size N] [--hop H]\n"
     "                     [--range DB] [--csv FILE] [--plot FILE.png]\n"
     "                     [--spectrogram FILE.png]\n"
     "\n"
     "Averages the power spectrum of IN over frames, per channel, in dB\n"
     "relative to a full-scale sine, and reports the strongest peaks.\n"
     "\n"
     "  --window NAME       Hanning (default), Hamming, Blackman,\n"
     "                      Blackman-Harris, Flat-Top, Rectangular, ...\n"
     "  --size N            frame length (default 2048)\n"
     "  --hop H             frame advance (default N / 2)\n"
     "  --range DB          floor below 0 dB (default 120)\n"
     "  --csv FILE          frequency and level of every bin, per channel\n"
     "  --plot FILE.png     draw the average spectrum (needs gnuplot)\n"
     "  --spectrogram FILE.png  draw level over time and frequency\n"
     "\n"
     "example:\n"
     "  tolv spectrum tone.wav --window Blackman-Harris --size 8192 --csv "
     "s.csv\n",
     runSpectrum},
    {"delay", "estimate the delay of one file against another",
     "usage: tolv delay A B [--max-seconds S] [--csv FILE]\n"
     "\n"
     "Estimates how late B is against A (negative: B is early) by\n"
     "cross-correlation, with the plain correlation coefficient and with\n"
     "PHAT weighting, over the channel average of the first S seconds of\n"
     "both files (default 30).\n"
     "\n"
     "  --csv FILE       write both correlations for delays within 0.1 s of\n"
     "                   zero: the plain one as a correlation coefficient,\n"
     "                   PHAT scaled to its own peak\n"
     "\n"
     "example:\n"
     "  tolv delay close-mic.wav room-mic.wav\n",
     runDelay},
};
const int kCommandCount = int(sizeof kCommands / sizeof kCommands[0]);

void printUsage(const Command &command)
{
    std::fputs(command.usage, stdout);
}

} // namespace cli

static void printOverview()
{
    std::printf(
        "usage: tolv COMMAND [ARGS]  (tolv COMMAND --help for details)\n\n"
        "commands:\n");
    for (const cli::Command &c : cli::kCommands)
        std::printf("  %-9s %s\n", c.name, c.summary);
    std::printf(
        "\nA file name may be - for standard input or output. Outputs never\n"
        "replace an input; devices and pipes are written in place.\n");
    std::printf("\n%s\n", TOLVVERSION_String());
}

int main(int argc, char **argv)
{
    if (argc < 2 || !std::strcmp(argv[1], "--help") ||
        !std::strcmp(argv[1], "-h")) {
        printOverview();
        return argc < 2 ? 2 : 0;
    }
    if (!std::strcmp(argv[1], "--version")) {
        std::printf("%s\n", TOLVVERSION_String());
        return 0;
    }
    cli::installCleanupHandler();
    cli::installMessageHandler();
    std::string name = argv[1];
    const cli::Command *found = nullptr;
    for (const cli::Command &c : cli::kCommands)
        if (name == c.name)
            found = &c;
    if (!found) {
        std::fprintf(stderr, "tolv: unknown command %s\nTry 'tolv --help'.\n",
                     name.c_str());
        return 2;
    }
    try {
        const cli::Command &command = *found;
        cli::Arguments args(argv + 2, argv + argc);
        for (const std::string &a : args)
            if (a == "--help" || a == "-h") {
                cli::printUsage(command);
                return 0;
            }
        return command.run(args);
    } catch (const cli::UsageError &e) {
        std::fprintf(stderr, "tolv %s: %s\n", name.c_str(), e.what());
        std::fprintf(stderr, "Try 'tolv %s --help'.\n", name.c_str());
        return 2;
    } catch (const cli::Failure &e) {
        std::fprintf(stderr, "tolv %s: %s\n", name.c_str(), e.what());
        return 1;
    } catch (const std::bad_alloc &) {
        std::fprintf(stderr, "tolv %s: out of memory\n", name.c_str());
        return 1;
    }
}
