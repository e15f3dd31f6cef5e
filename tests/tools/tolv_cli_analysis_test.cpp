/*
 * End to end: tolv info, design, spectrum and delay, and the help of every
 * subcommand.
 */
#include <algorithm>
#include <cstdio>
#include <fstream>

#include <gtest/gtest.h>

#include "tolv.h"
#include "tolv_cli_support.h"

using namespace clitest;

namespace {

TEST(TolvHelp, EverySubcommandHasUsageAndAnExample)
{
    for (const char *name : {"info", "design", "filter", "resample", "stretch",
                             "spectrum", "delay"}) {
        Outcome r = runTolv({name, "--help"});
        EXPECT_EQ(0, r.status) << name;
        EXPECT_EQ(0u, r.out.find(std::string("usage: tolv ") + name)) << r.out;
        const size_t example = r.out.find("example:\n");
        EXPECT_NE(std::string::npos, example) << r.out;
        EXPECT_NE(std::string::npos,
                  r.out.find("tolv " + std::string(name), example))
            << r.out;
    }
    Outcome unknown = runTolv({"transmogrify"});
    EXPECT_EQ(2, unknown.status);
    EXPECT_NE(std::string::npos,
              unknown.err.find("unknown command transmogrify"));
    EXPECT_EQ(2, runTolv({}).status);
    EXPECT_EQ(2,
              runTolv({"resample", "a.wav", "b.wav", "--bogus", "1"}).status);
}

TEST(TolvInfo, TellsWhetherTheWisdomFileIsThere)
{
    ScratchDir dir;
    Outcome unset = runTolv({"info"}, {"KEEL_DATA_PATH="});
    ASSERT_EQ(0, unset.status) << unset.err;
    EXPECT_NE(std::string::npos, unset.out.find(TOLVVERSION_String()));
    EXPECT_NE(std::string::npos, unset.out.find("FFT wisdom: not kept"));

    Outcome missing = runTolv({"info"}, {"KEEL_DATA_PATH=" + dir.path("")});
    EXPECT_NE(std::string::npos,
              missing.out.find("brae.optimization (not found"));
    std::ofstream(dir.path("brae.optimization"))
        << "(fftw-3.3.10 fftwf_wisdom)\n";
    Outcome found = runTolv({"info"}, {"KEEL_DATA_PATH=" + dir.path("")});
    EXPECT_NE(std::string::npos,
              found.out.find("brae.optimization (found, 27 bytes)"))
        << found.out;
}

/* Each design's figures against what its text asks for: order and section
 * count, the -3 dB points at the edges of designs whose edge attenuation is
 * 3 dB, ripple within Ap, stopband below -As. */
TEST(TolvDesign, FiguresMatchWhatTheTextAsks)
{
    const struct {
        const char *text;
        int order, sections;
        double edge1, edge2;  /* expected -3 dB points in Hz, 0: not checked */
        double ripple, floor; /* ripple at most, stopband at most; 0: absent */
    } rows[] = {
        {"fpass=1000, order=5", 5, 3, 1000, 0, 3.0, 0},
        {"type=hp, fpass=1500, order=6", 6, 3, 1500, 0, 3.0, 0},
        {"type=hp, approximation=cheby1, fpass=1000, order=7, Ap=0.5", 7, 4, 0,
         0, 0.5, 0},
        {"type=bs, fpass1=1000, fpass2=2000, order=3", 6, 3, 1000, 2000, 3.0,
         0},
        {"approximation=ellip, fpass=1000, fstop=1200, Ap=0.5, As=70", 9, 5, 0,
         0, 0.5, -70},
        {"type=bandpass, approximation=ellip, fpass1=300, fpass2=3400, "
         "fstop1=200, fstop2=3700, Ap=1, As=60",
         0, 0, 0, 0, 1.0, -60},
        /* acosh(sqrt((10^5 - 1) / (10^0.3 - 1))) / acosh(1.5) = 6.7 */
        {"approximation=cheby2, fpass=1000, fstop=1500, As=50", 7, 4, 0, 0, 0,
         -50},
    };
    for (const auto &row : rows) {
        Outcome r = runTolv({"design", row.text, "--fs", "8000"});
        ASSERT_EQ(0, r.status) << row.text << "\n" << r.err;
        if (row.order) {
            EXPECT_NE(std::string::npos,
                      r.out.find("order " + std::to_string(row.order) + ", " +
                                 std::to_string(row.sections) + " section"))
                << row.text << "\n"
                << r.out;
        } else {
            // Band designs double the prototype's order: always even.
            EXPECT_EQ(0, int(numberAfter(r.out, "\norder ")) % 2) << r.out;
        }
        const double first =
            numberAfter(r.out, "-3 dB points (3 dB below the peak): ");
        if (row.edge1) {
            EXPECT_NEAR(row.edge1, first, 1.0) << row.text << "\n" << r.out;
        }
        if (row.edge2) {
            EXPECT_NEAR(row.edge2, numberAfter(r.out, " Hz, "), 1.0) << r.out;
        }
        if (row.ripple) {
            EXPECT_LE(numberAfter(r.out, "ripple "), row.ripple + 0.01)
                << r.out;
        }
        if (row.floor) {
            EXPECT_LE(numberAfter(r.out, ": at most "), row.floor + 0.05)
                << r.out;
        } else {
            EXPECT_NE(std::string::npos,
                      r.out.find("the text gives no stop edge"))
                << r.out;
        }
    }
}

TEST(TolvDesign, ExplicitFormsReportTheirOwnOrder)
{
    Outcome df = runTolv(
        {"design", "numerator=[0.2 0.4 0.2]; denominator=[1, -0.5, 0.1]"});
    ASSERT_EQ(0, df.status) << df.err;
    EXPECT_NE(std::string::npos, df.out.find("direct form II from the text"));
    EXPECT_NE(std::string::npos,
              df.out.find("order 2 (numerator 3, denominator 3"));
    // H(1) = 0.8 / 0.6.
    EXPECT_NEAR(20 * std::log10(0.8 / 0.6), numberAfter(df.out, "gain at DC: "),
                0.01);
    Outcome sos = runTolv(
        {"design", "biquads=[-1.2 0.5 0.1 0.2 0.1; -0.3 0 1 2 0], nc=2"});
    ASSERT_EQ(0, sos.status) << sos.err;
    EXPECT_NE(std::string::npos, sos.out.find("order 3, 2 sections"));
    EXPECT_NE(std::string::npos, sos.out.find("2 channels"));
}

/* The order reported is the one built, whatever its parity; an order past
 * the documented bound, given or estimated, is refused before any design
 * runs (the estimate below is about 4e7, which would design for minutes). */
TEST(TolvDesign, OrderIsTheOneBuiltAndBounded)
{
    const struct {
        const char *text;
        int status;
        const char *said;
    } rows[] = {
        {"fpass=0.2, order=80", 0, "order 80, 40 sections"},
        {"type=LowPass, approximation=Elliptic, fpass=0.2, fstop=0.3, As=40", 0,
         "filter: lowpass, ellip"},
        {"fpass=0.2, order=199", 0, "order 199, 100 sections"},
        {"fpass=0.2, order=1000", 0, "order 1000, 500 sections"},
        {"type=bs, fpass1=0.2, fpass2=0.3, order=501", 1,
         "order 1002; tolv designs up to order 1000"},
        {"type=lowpass, fpass=0.1, fstop=0.1000001, As=300, Ap=0.0001", 1,
         "order 41815361; tolv designs up to order 1000"},
    };
    for (const auto &row : rows) {
        Outcome r = runTolv({"design", row.text});
        EXPECT_EQ(row.status, r.status) << row.text << "\n" << r.err;
        EXPECT_NE(std::string::npos, (r.out + r.err).find(row.said))
            << row.text << "\n"
            << r.out << r.err;
    }
    ScratchDir dir;
    writeAudio(dir.path("in.wav"), makeSignal(100, 8000, {{{0.5, 440}}}), 1,
               8000);
    Outcome f = runTolv({"filter", dir.path("in.wav"), dir.path("out.wav"),
                         "fpass=0.2, order=5000"});
    EXPECT_EQ(1, f.status);
    EXPECT_NE(std::string::npos, f.err.find("order 5000;")) << f.err;
    EXPECT_FALSE(fileExists(dir.path("out.wav")));
}

TEST(TolvDesign, RefusalsShowTheLibrarysMessage)
{
    const struct {
        std::vector<std::string> args;
        int status;
        const char *message;
    } rows[] = {
        {{"design", "type=lowpass, fpass=0.25"},
         1,
         "you must specify As or order"},
        {{"design", "type=bogus, fpass=0.25, order=2"},
         1,
         "unknown filter type \"bogus\"; the types are lowpass (lp), "},
        {{"design", "approximation=foo, fpass=0.25, order=2"},
         1,
         "Invalid approximation (foo); the approximations are butterworth"},
        {{"design", "type=lowpass fpass=0.25 order=2"},
         1,
         "are separated by commas: \"lowpass fpass=0.25 order=2\" reads"},
        {{"design", "type=bp, fpass1=0.2, fpass2=0.3, As=40"},
         1,
         "As sets the order only together with a stop edge"},
        {{"design", "fpass=300, order=2"},
         1,
         "you must specify a sampling frequency"},
        {{"design", "type=bp, fpass1=0.4, fpass2=0.2, order=2"},
         1,
         "edges are out of order"},
        {{"design", "fpass=0.25, order=2", "--fs", "0"},
         2,
         "--fs must be positive"},
        {{"design"}, 2, "needs exactly one filter text"},
    };
    for (const auto &row : rows) {
        Outcome r = runTolv(row.args);
        EXPECT_EQ(row.status, r.status) << row.args[1];
        EXPECT_NE(std::string::npos, r.err.find(row.message)) << r.err;
        // A failure is one line; a usage error adds the pointer to --help.
        EXPECT_EQ(row.status, std::count(r.err.begin(), r.err.end(), '\n'))
            << r.err;
    }
}

TEST(TolvDesign, PlotIsDrawnOrExplainsHowToGetGnuplot)
{
    ScratchDir dir;
    Outcome without =
        runTolv({"design", "fpass=0.25, order=4", "--plot", dir.path("r.png")},
                {"PATH=/nonexistent"});
    EXPECT_EQ(0, without.status);
    EXPECT_NE(std::string::npos,
              without.err.find("apt-get install gnuplot-nox"));
    EXPECT_FALSE(fileExists(dir.path("r.png")));
    if (findGnuplot().empty())
        GTEST_SKIP() << "gnuplot is not installed here";
    Outcome with =
        runTolv({"design", "fpass=0.25, order=4", "--plot", dir.path("r.png")});
    ASSERT_EQ(0, with.status) << with.err;
    std::ifstream png(dir.path("r.png"), std::ios::binary);
    char magic[4] = {};
    png.read(magic, 4);
    EXPECT_EQ(std::string("\x89PNG", 4), std::string(magic, 4));
    EXPECT_EQ((std::vector<std::string>{"r.png"}), dir.entries());
}

/* A full-scale sine centred on a bin reads 0 dB through every window (its
 * mean is divided out); an amplitude of 0.25 reads -12.04 dB. */
TEST(TolvSpectrum, LevelsAreRelativeToAFullScaleSine)
{
    ScratchDir dir;
    const int rate = 32000, size = 1024;
    const double hz = 100.0 * rate / size; /* bin 100 */
    writeAudio(dir.path("tones.wav"),
               makeSignal(rate, rate, {{{1.0, hz}}, {{0.25, hz}}}), 2, rate,
               SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    for (const char *window :
         {"Rectangular", "Hanning", "Blackman-Harris", "flat-top"}) {
        Outcome r = runTolv({"spectrum", dir.path("tones.wav"), "--window",
                             window, "--size", std::to_string(size), "--csv",
                             dir.path("s.csv")});
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_NEAR(0.0, numberAfter(r.out, "channel 1: peak "), 0.01)
            << window << r.out;
        EXPECT_NEAR(-12.04, numberAfter(r.out, "channel 2: peak "), 0.01)
            << window << r.out;
        EXPECT_NEAR(hz, numberAfter(r.out, "dB at "), 0.5) << r.out;
        std::ifstream csv(dir.path("s.csv"));
        std::string line;
        std::getline(csv, line);
        EXPECT_EQ("frequency_hz,channel_1_db,channel_2_db", line);
        int lines = 0;
        while (std::getline(csv, line))
            lines++;
        EXPECT_EQ(size / 2 + 1, lines);
    }
}

/* Half-way between two bins, where the raw bin of a Blackman-Harris window
 * reads 0.8 dB low, the refined peak is back at the tone's level and
 * frequency. */
TEST(TolvSpectrum, PeaksBetweenBinsAreRefined)
{
    ScratchDir dir;
    const int rate = 32000, size = 1024;
    const double hz = 100.5 * rate / size;
    writeAudio(dir.path("tone.wav"), makeSignal(rate, rate, {{{0.5, hz}}}), 1,
               rate, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    Outcome r = runTolv({"spectrum", dir.path("tone.wav"), "--window",
                         "Blackman-Harris", "--size", std::to_string(size),
                         "--csv", dir.path("s.csv")});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NEAR(-6.02, numberAfter(r.out, "channel 1: peak "), 0.05) << r.out;
    EXPECT_NEAR(hz, numberAfter(r.out, "dB at "), 0.5) << r.out;
    std::ifstream csv(dir.path("s.csv"));
    std::string line;
    for (int i = 0; i <= 101; i++)
        std::getline(csv, line); /* header, then bins 0 .. 100 */
    EXPECT_NEAR(-6.02 - 0.82, numberAfter(line, ","), 0.05) << line;
}

TEST(TolvSpectrum, ArgumentsAreChecked)
{
    ScratchDir dir;
    writeAudio(dir.path("a.wav"), makeSignal(100, 8000, {{{0.5, 1000}}}), 1,
               8000);
    const struct {
        std::vector<std::string> extra;
        const char *message;
    } rows[] = {
        {{"--window", "Kaiser"}, "the windows are Rectangular, Triangular"},
        {{"--size", "1000.5"}, "--size must be a whole number"},
        {{"--size", "15"}, "--size must be even"},
        {{"--hop", "0"}, "--hop must be from 1"},
        {{"--range", "-3"}, "--range must be above 0"},
    };
    for (const auto &row : rows) {
        std::vector<std::string> args = {"spectrum", dir.path("a.wav")};
        args.insert(args.end(), row.extra.begin(), row.extra.end());
        Outcome r = runTolv(args);
        EXPECT_EQ(2, r.status) << row.message;
        EXPECT_NE(std::string::npos, r.err.find(row.message)) << r.err;
    }
    // Shorter than a frame: analysed as one padded frame.
    Outcome shortFile = runTolv({"spectrum", dir.path("a.wav")});
    EXPECT_EQ(0, shortFile.status);
    EXPECT_NE(std::string::npos,
              shortFile.out.find("1 analysis frame of 2048"));
}

/* B is A delayed by d frames (or advanced), with its own noise; both
 * methods find d exactly, and the milliseconds follow from the rate. */
TEST(TolvDelay, FindsTheDelayPutIn)
{
    ScratchDir dir;
    const int rate = 22050, frames = 3 * rate;
    const std::vector<float> a =
        makeSignal(frames + 4000, rate,
                   {{{0.3, 440}, {0.2, 3000}}, {{0.3, 440}}}, 0.3f, 7);
    const std::vector<float> noise =
        makeSignal(frames, rate, {{}, {}}, 0.05f, 99);
    writeAudio(dir.path("a.wav"),
               std::vector<float>(a.begin() + 2 * 2000,
                                  a.begin() + 2 * (2000 + frames)),
               2, rate);
    for (int delay : {0, 1234, -321}) {
        std::vector<float> b(a.begin() + 2 * (2000 - delay),
                             a.begin() + 2 * (2000 - delay + frames));
        for (size_t i = 0; i < b.size(); i++)
            b[i] += noise[i];
        writeAudio(dir.path("b.wav"), b, 2, rate);
        Outcome r = runTolv({"delay", dir.path("a.wav"), dir.path("b.wav")});
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ(delay, numberAfter(r.out, "coefficient method: ")) << r.out;
        EXPECT_EQ(delay, numberAfter(r.out, "PHAT method: ")) << r.out;
        EXPECT_NEAR(1000.0 * delay / rate, numberAfter(r.out, "samples ("),
                    0.001);
        EXPECT_GT(numberAfter(r.out, "correlation coefficient "), 0.9);
    }
}

TEST(TolvDelay, RefusesFilesItCannotAlign)
{
    ScratchDir dir;
    writeAudio(dir.path("a.wav"), makeSignal(4000, 8000, {{{0.5, 100}}}, 0.1f),
               1, 8000);
    writeAudio(dir.path("b.wav"), makeSignal(4000, 16000, {{{0.5, 100}}}, 0.1f),
               1, 16000);
    writeAudio(dir.path("silent.wav"), std::vector<float>(4000, 0.0f), 1, 8000);
    const struct {
        std::string b;
        const char *message;
    } rows[] = {
        {dir.path("b.wav"), "different rates (8000 Hz and 16000 Hz)"},
        {dir.path("silent.wav"), "silent.wav is silent"},
        {dir.path("none.wav"), "cannot read"},
    };
    for (const auto &row : rows) {
        Outcome r = runTolv({"delay", dir.path("a.wav"), row.b});
        EXPECT_EQ(1, r.status);
        EXPECT_NE(std::string::npos, r.err.find(row.message)) << r.err;
    }
}

} // namespace
