/*
 * End to end: tolv filter, resample and stretch on small generated files.
 * The streamed outputs are compared with the library run over the whole
 * signal at once, so block seams, channel handling and the final flush
 * show up as differences.
 */
#include <cmath>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tolv.h"
#include "tolv_cli_support.h"

using namespace clitest;

namespace {

const int kFloatWav = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

TEST(TolvFilter, MatchesTheLibraryOverTheWholeSignal)
{
    ScratchDir dir;
    const int rate = 44100, frames = 20000; /* more than two blocks */
    const std::vector<float> in = makeSignal(
        frames, rate, {{{0.4, 100}, {0.4, 10000}}, {{0.3, 200}}}, 0.01f);
    writeAudio(dir.path("in.wav"), in, 2, rate, kFloatWav);
    const char *text = "type=lowpass, fpass=1000, order=4";
    Outcome r =
        runTolv({"filter", dir.path("in.wav"), dir.path("out.wav"), text});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(
        std::string::npos,
        r.out.find(
            "out.wav: 20000 frames (expected 20000), 2 channels at 44100 Hz"));

    std::vector<float> expected = in;
    _TOLV_FILTER *f =
        TOLV_CreateFilter("%s, fs=%d, num_channels=2", text, rate);
    ASSERT_NE(nullptr, f);
    TOLV_Filter(f, expected.data(), expected.data(), uint32_t(expected.size()));
    TOLV_DestroyFilter(f);
    Audio out = readAudio(dir.path("out.wav"));
    ASSERT_EQ(expected.size(), out.samples.size());
    EXPECT_EQ(0,
              memcmp(expected.data(), out.samples.data(), 4 * expected.size()));
    EXPECT_NEAR(0.4, toneAmplitude(out.channel(0), rate, 100), 0.01);
    EXPECT_LT(toneAmplitude(out.channel(0), rate, 10000), 1e-3);
}

/* The container follows the output's name when it names one, else the
 * input; the encoding follows the input unless asked, and falls back to
 * what the container can hold. */
TEST(TolvFilter, OutputFormatFollowsTheInputUnlessAsked)
{
    const struct {
        int inFormat;
        const char *out, *encoding;
        int expected;
    } rows[] = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_16, "o.wav", "",
         SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, "o.flac", "",
         SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, "o.wav", "",
         SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {kFloatWav, "o.flac", "", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_16, "o.wav", "float", kFloatWav},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, "o.aiff", "pcm24",
         SF_FORMAT_AIFF | SF_FORMAT_PCM_24},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_16, "o.AU", "",
         SF_FORMAT_AU | SF_FORMAT_PCM_16},
    };
    for (const auto &row : rows) {
        ScratchDir dir;
        writeAudio(dir.path("in"), makeSignal(3000, 16000, {{{0.5, 440}}}), 1,
                   16000, row.inFormat);
        std::vector<std::string> args = {
            "filter", dir.path("in"), dir.path(row.out), "fpass=0.5, order=2"};
        if (*row.encoding)
            args.insert(args.end(), {"--encoding", row.encoding});
        Outcome r = runTolv(args);
        ASSERT_EQ(0, r.status) << row.out << " " << r.err;
        Audio out = readAudio(dir.path(row.out));
        EXPECT_EQ(row.expected, out.format)
            << row.out << " " << std::hex << out.format;
        EXPECT_EQ(3000, out.frames);
    }
}

/* Every failure exits with status 1 and one line, leaves no output and no
 * temporary file behind, and never touches the input. */
TEST(TolvFilter, FailuresLeaveNothingBehind)
{
    ScratchDir dir;
    writeAudio(dir.path("in.wav"),
               makeSignal(3000, 16000, {{{0.5, 440}}, {{0.5, 440}}}), 2, 16000);
    writeAudio(dir.path("in.flac"), makeSignal(300, 16000, {{{0.5, 440}}}), 1,
               16000, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    std::ofstream(dir.path("text.wav")) << "not audio at all\n";
    const std::string original = bytesOf(dir.path("in.wav"));
    const struct {
        std::vector<std::string> args;
        const char *message;
    } rows[] = {
        {{"filter", dir.path("none.wav"), dir.path("out.wav"),
          "fpass=0.5, order=2"},
         "cannot read"},
        {{"filter", dir.path("text.wav"), dir.path("out.wav"),
          "fpass=0.5, order=2"},
         "cannot read"},
        {{"filter", dir.path("in.wav"), dir.path("out.wav"),
          "type=bogus, fpass=0.5, order=2"},
         "unknown filter type \"bogus\""},
        {{"filter", dir.path("in.wav"), dir.path("out.wav"),
          "fpass=0.5, order=2, nc=1"},
         "the text asks for 1 channels but"},
        {{"filter", dir.path("in.wav"), dir.path("in.wav"),
          "fpass=0.5, order=2"},
         "is an input file"},
        {{"filter", dir.path("in.wav"), dir.path("no/such/dir/out.wav"),
          "fpass=0.5, order=2"},
         "cannot write"},
        {{"filter", dir.path("in.flac"), dir.path("out.flac"),
          "fpass=0.5, order=2", "--encoding", "float"},
         "cannot hold --encoding float"},
        /* order 203 at 16 kHz: +113 dB at DC in the float cascade */
        {{"filter", dir.path("in.wav"), dir.path("out.wav"),
          "type=lowpass, fpass=333, fstop=350, Ap=1, As=80"},
         "the filter misses its pass band: its gain there runs from"},
        {{"filter", dir.path("in.wav"), dir.path("out.wav"),
          "fpass=0.1, numerator=[1 0]; denominator=[1 -1.5]"},
         "the filter is unstable"},
        {{"filter", dir.path("in.wav"), dir.path("out.wav"),
          "fpass=8000, order=4"},
         "the pass edge at 8000 Hz is at or above half the sampling rate"},
        {{"filter", dir.path("in.wav"), dir.path("out.wav"),
          "type=bp, fpass1=1000, fpass2=2000, fstop2=9000, order=4"},
         "the stop edge at 9000 Hz is at or above half"},
        {{"resample", dir.path("in.wav"), dir.path("out.wav"), "--rate",
          "12345", "--type", "zoh"},
         "Unsuported sample rate convertion: 16000 to 12345"},
        {{"resample", dir.path("in.wav"), dir.path("out.wav"), "--rate",
          "48001", "--order", "1000"},
         "too small a common divisor"},
    };
    const std::vector<std::string> before = dir.entries();
    for (const auto &row : rows) {
        Outcome r = runTolv(row.args);
        EXPECT_EQ(1, r.status) << row.message;
        EXPECT_NE(std::string::npos, r.err.find(row.message)) << r.err;
        EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
        EXPECT_EQ(before, dir.entries()) << row.message;
    }
    EXPECT_EQ(original, bytesOf(dir.path("in.wav")));
    Outcome forced =
        runTolv({"filter", dir.path("in.wav"), dir.path("out.wav"),
                 "type=lowpass, fpass=333, fstop=350, Ap=1, As=80", "--force"});
    EXPECT_EQ(0, forced.status) << forced.err;
}

/* True once process `pid` holds an open file in `dir` that has no name
 * there yet (unnamed, or a hidden temporary). */
bool writesInto(int pid, const std::string &dir)
{
    const std::string fds = "/proc/" + std::to_string(pid) + "/fd";
    for (int fd = 0; fd < 64; fd++) {
        char target[4096];
        std::string link = fds + "/" + std::to_string(fd);
        ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
        if (n <= 0)
            continue;
        std::string t(target, size_t(n));
        if (t.rfind(dir + "/", 0) == 0 &&
            (t.find("(deleted)") != std::string::npos ||
             t.find(".tmp-") != std::string::npos))
            return true;
    }
    return false;
}

/* A run stopped by a signal while it writes, even one that cannot be
 * caught, leaves the folder holding only the input. */
TEST(TolvFilter, InterruptedRunLeavesNothingBehind)
{
    for (int sig : {SIGTERM, SIGINT, SIGKILL}) {
        ScratchDir dir;
        writeAudio(dir.path("in.wav"),
                   makeSignal(30 * 44100, 44100, {{{0.5, 440}}}), 1, 44100);
        // A long prototype makes the conversion take seconds.
        int pid =
            startTolv({"resample", dir.path("in.wav"), dir.path("out.wav"),
                       "--rate", "48000", "--order", "800"});
        const std::string folder = dir.path("");
        bool writing = false;
        for (int i = 0; i < 2000 && !writing; i++) {
            writing = writesInto(pid, folder.substr(0, folder.size() - 1));
            usleep(5000);
        }
        ASSERT_TRUE(writing) << "the temporary output never appeared";
        kill(pid, sig);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the run ended before the signal";
        EXPECT_EQ(sig, WTERMSIG(status));
        EXPECT_EQ((std::vector<std::string>{"in.wav"}), dir.entries()) << sig;
    }
}

struct ResampleCase {
    int from, to;
    const char *type;
    int channels;
    int64_t frames;
};

/* The output has round(n * to / from) frames, and equals each channel run
 * through its own converter in one call plus the flush. */
TEST(TolvResample, LengthRateAndSamplesMatchTheLibrary)
{
    const ResampleCase rows[] = {
        {44100, 48000, "polyphase", 2, 30000},
        {48000, 44100, "polyphase", 1, 20000},
        {16000, 16000, "polyphase", 1, 5000},
        {44100, 8000, "polyphase", 2, 12345},
        {16000, 48000, "polyphase", 1, 10},
        {8000, 16000, "zoh", 1, 10000},
        {22050, 11025, "zoh", 2, 9000},
    };
    for (const auto &row : rows) {
        ScratchDir dir;
        std::vector<std::vector<Tone>> tones(size_t(row.channels),
                                             {{0.5, 1000.0}});
        const std::vector<float> in =
            makeSignal(row.frames, row.from, tones, 0.01f);
        writeAudio(dir.path("in.wav"), in, row.channels, row.from, kFloatWav);
        Outcome r =
            runTolv({"resample", dir.path("in.wav"), dir.path("out.wav"),
                     "--rate", std::to_string(row.to), "--type", row.type});
        ASSERT_EQ(0, r.status) << row.from << "->" << row.to << " " << r.err;
        const int64_t expected =
            (row.frames * row.to + row.from / 2) / row.from;
        Audio out = readAudio(dir.path("out.wav"));
        EXPECT_EQ(expected, out.frames) << row.from << "->" << row.to;
        EXPECT_EQ(row.to, out.rate);
        EXPECT_EQ(row.channels, out.channels);
        for (int c = 0; c < row.channels; c++) {
            std::vector<float> x(static_cast<size_t>(row.frames));
            for (int64_t f = 0; f < row.frames; f++)
                x[size_t(f)] = in[size_t(f * row.channels + c)];
            /* The command's default quality is the order 128. */
            std::string config = std::string("type=") + row.type +
                                 (row.type[0] == 'p' ? ", order=128" : "");
            _TOLV_RESAMPLE *conv =
                TOLV_ResampleInit(row.from, row.to, config.c_str());
            std::vector<float> y(
                size_t(row.frames * (row.to / row.from + 1) + 64));
            int n = TOLV_Resample(conv, x.data(), y.data(), int(row.frames));
            y.resize(size_t(n) +
                     size_t(std::max(0, TOLV_ResampleFlushBufferSize(conv))));
            n += TOLV_ResampleFlushBuffersEx(conv, y.data() + n, 0);
            TOLV_ResampleDestroy(conv);
            y.resize(size_t(expected),
                     0.0f); /* trimmed, or padded with silence */
            ASSERT_EQ(y, out.channel(c))
                << row.from << "->" << row.to << " channel " << c;
        }
        if (row.frames > 1000 && std::string(row.type) == "polyphase") {
            EXPECT_NEAR(0.5, toneAmplitude(out.channel(0), row.to, 1000), 0.01);
        }
    }
}

/* Each preset is its order, bit for bit, and the verbose report gives the
 * fixed fraction of a frame that whole-frame delay compensation leaves. */
TEST(TolvResample, QualityPresetsAreOrders)
{
    ScratchDir dir;
    writeAudio(dir.path("in.wav"),
               makeSignal(3000, 44100, {{{0.5, 1000.0}}}, 0.01f), 1, 44100,
               kFloatWav);
    const struct {
        const char *quality, *order, *shift;
    } rows[] = {{"low", "16", "+0.415"},
                {"medium", "64", "-0.340"},
                {"high", "128", "+0.320"},
                {"very-high", "256", "-0.361"}};
    for (const auto &row : rows) {
        auto run = [&](const char *option, const char *value,
                       const char *name) {
            return runTolv({"resample", dir.path("in.wav"), dir.path(name),
                            "--rate", "48000", option, value, "--verbose"});
        };
        Outcome preset = run("--quality", row.quality, "q.wav");
        Outcome order = run("--order", row.order, "o.wav");
        ASSERT_EQ(0, preset.status) << preset.err;
        EXPECT_TRUE(readAudio(dir.path("q.wav")).samples ==
                    readAudio(dir.path("o.wav")).samples)
            << row.quality;
        EXPECT_NE(std::string::npos,
                  preset.err.find(std::string("order ") + row.order + ":"))
            << preset.err;
        EXPECT_NE(std::string::npos,
                  preset.err.find(std::string("shifted by ") + row.shift))
            << preset.err;
    }
    Outcome library =
        runTolv({"resample", dir.path("in.wav"), dir.path("l.wav"), "--rate",
                 "48000", "--order", "30", "--verbose"});
    EXPECT_NE(std::string::npos,
              library.err.find("33 compensated: the output is shifted by "
                               "-0.347 output frames"))
        << library.err;
}

TEST(TolvResample, ArgumentsAreChecked)
{
    ScratchDir dir;
    writeAudio(dir.path("in.wav"), makeSignal(100, 8000, {{{0.5, 440}}}), 1,
               8000);
    const std::vector<std::vector<std::string>> rows = {
        {"--rate", "0"},
        {"--rate", "48k"},
        {"--rate", "8000", "--type", "sinc"},
        {"--rate", "16000", "--type", "zoh", "--order", "8"},
        {"--rate", "16000", "--order", "0"},
        {"--rate", "16000", "--quality", "best"},
        {"--rate", "16000", "--quality", "low", "--order", "8"},
        {"--rate", "16000", "--type", "zoh", "--quality", "low"},
        {},
    };
    for (const auto &extra : rows) {
        std::vector<std::string> args = {"resample", dir.path("in.wav"),
                                         dir.path("out.wav")};
        args.insert(args.end(), extra.begin(), extra.end());
        Outcome r = runTolv(args);
        EXPECT_EQ(2, r.status) << r.err;
        EXPECT_FALSE(fileExists(dir.path("out.wav")));
    }
}

/* round(n / s) frames at any speed; at speed 1 the input comes back as it
 * was; otherwise each channel's tone keeps its pitch, so its energy stays
 * at its own frequency and does not move to s times it. */
TEST(TolvStretch, LengthAndPitch)
{
    const int rate = 16000;
    const double hz = 500;
    for (int channels : {1, 2})
        for (double speed : {0.5, 0.8, 1.0, 1.25, 2.0, 3.0}) {
            ScratchDir dir;
            const int64_t frames = 20000 + channels * 7;
            std::vector<std::vector<Tone>> tones;
            for (int c = 0; c < channels; c++)
                tones.push_back({{0.5, hz * (1 + 0.4 * c)}});
            const std::vector<float> in = makeSignal(frames, rate, tones);
            writeAudio(dir.path("in.wav"), in, channels, rate, kFloatWav);
            std::ostringstream s;
            s << speed;
            Outcome r = runTolv({"stretch", dir.path("in.wav"),
                                 dir.path("out.wav"), "--speed", s.str()});
            ASSERT_EQ(0, r.status) << speed << " " << r.err;
            Audio out = readAudio(dir.path("out.wav"));
            EXPECT_EQ(std::llround(double(frames) / speed), out.frames)
                << speed;
            EXPECT_EQ(channels, out.channels);
            if (speed == 1.0) {
                for (size_t i = 0; i < in.size(); i++)
                    ASSERT_NEAR(in[i], out.samples[i], 1e-6f) << i;
                continue;
            }
            for (int c = 0; c < channels; c++) {
                std::vector<float> y = out.channel(c);
                y.resize(y.size() * 9 /
                         10); /* the tail fades into the silence fed behind */
                const double own = hz * (1 + 0.4 * c);
                EXPECT_GT(toneAmplitude(y, rate, own), 0.4)
                    << speed << " channel " << c;
                EXPECT_LT(toneAmplitude(y, rate, own * speed), 0.05) << speed;
            }
        }
}

/* The channels are spliced together: with R = L / 2 on a signal whose
 * splice points an independent search would choose differently per level,
 * the output keeps R = L / 2 to the bit. */
TEST(TolvStretch, StereoImageHolds)
{
    const int rate = 16000, frames = 24000;
    const std::vector<float> mono =
        makeSignal(frames, rate, {{{0.3, 130}, {0.2, 260}, {0.1, 1100}}}, 0.2f);
    std::vector<float> in(size_t(2) * frames);
    for (int i = 0; i < frames; i++) {
        in[size_t(2 * i)] = mono[size_t(i)];
        in[size_t(2 * i + 1)] = 0.5f * mono[size_t(i)];
    }
    for (const char *speed : {"0.5", "0.8", "1.25", "2"}) {
        ScratchDir dir;
        writeAudio(dir.path("in.wav"), in, 2, rate, kFloatWav);
        Outcome r = runTolv({"stretch", dir.path("in.wav"), dir.path("out.wav"),
                             "--speed", speed});
        ASSERT_EQ(0, r.status) << r.err;
        Audio out = readAudio(dir.path("out.wav"));
        for (int64_t f = 0; f < out.frames; f++)
            ASSERT_EQ(0.5f * out.at(f, 0), out.at(f, 1)) << speed << " " << f;
    }
}

TEST(TolvStretch, ArgumentsAreChecked)
{
    ScratchDir dir;
    writeAudio(dir.path("in.wav"), makeSignal(100, 8000, {{{0.5, 440}}}), 1,
               8000);
    const struct {
        std::vector<std::string> extra;
        const char *message;
    } rows[] = {
        {{"--speed", "0"}, "--speed must be from 0.01 to 3"},
        {{"--speed", "3.5"}, "--speed must be from 0.01 to 3"},
        {{"--speed", "1e-40"}, "--speed must be from 0.01 to 3"},
        {{"--speed", "1e-300"}, "--speed must be from 0.01 to 3"},
        {{"--speed", "0.0099"}, "--speed must be from 0.01 to 3"},
        {{"--speed", "fast"}, "--speed must be a number"},
        {{"--speed", "1", "--frame-ms", "1"},
         "--frame-ms must be from 2 to 222 ms at 8000 Hz"},
        {{"--speed", "1", "--frame-ms", "223"},
         "--frame-ms must be from 2 to 222 ms at 8000 Hz"},
        {{"--speed", "1", "--frame-ms", "9223372036854775807"},
         "--frame-ms must be from 2 to 222 ms at 8000 Hz"},
        {{}, "needs --speed"},
    };
    for (const auto &row : rows) {
        std::vector<std::string> args = {"stretch", dir.path("in.wav"),
                                         dir.path("out.wav")};
        args.insert(args.end(), row.extra.begin(), row.extra.end());
        Outcome r = runTolv(args);
        EXPECT_EQ(2, r.status);
        EXPECT_NE(std::string::npos, r.err.find(row.message)) << r.err;
        EXPECT_FALSE(fileExists(dir.path("out.wav")));
    }
}

} // namespace
