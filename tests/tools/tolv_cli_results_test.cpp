/*
 * End to end: the samples tolv writes, against the library run over the
 * whole signal at once or what a time-scale change must keep, and where it
 * writes them: devices, pipes, FIFOs, symlinks, new files, killed runs.
 */
#include <complex>
#include <csignal>

#include <gtest/gtest.h>

#include "tolv.h"
#include "tolv_cli_support.h"

using namespace clitest;

namespace {

/* Amplitude of the component at `hz`, by correlation over whole periods. */
double toneAmplitude(const std::vector<float> &x, int rate, double hz)
{
    const size_t span = size_t(std::floor(x.size() * hz / rate) * rate / hz);
    std::complex<double> sum = 0.0;
    for (size_t n = 0; n < span; n++)
        sum += double(x[n]) * std::polar(1.0, 2 * M_PI * hz * double(n) / rate);
    return 2.0 * std::abs(sum) / double(span);
}

/* The samples are the library's filter over the whole signal, bit for bit,
 * through block seams and both channels (a float WAV holds x exactly). */
TEST(TolvFilter, MatchesTheLibrary)
{
    ScratchDir dir;
    const int rate = 44100; /* 20000 frames: more than two blocks */
    const std::string text = "type=lowpass, fpass=1000, order=4";
    std::vector<float> x = makeSignal(
        20000, rate, {{{0.4, 100}, {0.4, 10000}}, {{0.3, 200}}}, 0.01f);
    writeAudio(dir.path("in.wav"), x, 2, rate, kFloatWav);
    const Outcome r = run(dir, "tolv filter @in.wav @o.wav '" + text + "'");
    ASSERT_EQ(0, r.status) << r.err;
    _TOLV_FILTER *f =
        TOLV_CreateFilter("%s, fs=%d, num_channels=2", text.c_str(), rate);
    TOLV_Filter(f, x.data(), x.data(), uint32_t(x.size()));
    TOLV_DestroyFilter(f);
    const Audio out = readAudio(dir.path("o.wav"));
    EXPECT_TRUE(x == out.samples);
    EXPECT_NEAR(0.4, toneAmplitude(out.channel(0), rate, 100), 0.01);
    EXPECT_LT(toneAmplitude(out.channel(0), rate, 10000), 1e-3);
}

/* round(n * to / from) frames, each channel equal to its own converter run
 * in one call plus the flush (the command's default is order 128). */
TEST(TolvResample, LengthRateAndSamplesMatchTheLibrary)
{
    const struct {
        int from, to;
        const char *type;
        int channels, frames;
    } rows[] = {
        // clang-format off
        {44100, 48000, "polyphase", 2, 30000}, {48000, 44100, "polyphase", 1, 20000}, {16000, 16000, "polyphase", 1, 5000},
        {44100, 8000, "polyphase", 2, 12345}, {16000, 48000, "polyphase", 1, 10}, {8000, 16000, "zoh", 1, 10000},
        {22050, 11025, "zoh", 2, 9000},
        // clang-format on
    };
    for (const auto &row : rows) {
        ScratchDir dir;
        const std::vector<float> x =
            makeSignal(row.frames, row.from,
                       {size_t(row.channels), {{0.5, 1000.0}}}, 0.01f);
        writeAudio(dir.path("in.wav"), x, row.channels, row.from, kFloatWav);
        const Outcome r =
            run(dir, "tolv resample @in.wav @out.wav --rate " +
                         std::to_string(row.to) + " --type " + row.type);
        ASSERT_EQ(0, r.status) << row.from << "->" << row.to << " " << r.err;
        const int expected =
            int((int64_t(row.frames) * row.to + row.from / 2) / row.from);
        const Audio in = readAudio(dir.path("in.wav")),
                    out = readAudio(dir.path("out.wav"));
        EXPECT_EQ(expected, out.frames) << row.from << "->" << row.to;
        EXPECT_EQ(row.to, out.samplerate);
        const std::string config = std::string("type=") + row.type +
                                   (row.type[0] == 'p' ? ", order=128" : "");
        for (int c = 0; c < row.channels; c++) {
            _TOLV_RESAMPLE *conv =
                TOLV_ResampleInit(row.from, row.to, config.c_str());
            const int flush = std::max(0, TOLV_ResampleFlushBufferSize(conv));
            std::vector<float> x = in.channel(c),
                               y(size_t(expected + flush + 64));
            int n = TOLV_Resample(conv, x.data(), y.data(), row.frames);
            TOLV_ResampleFlushBuffersEx(conv, y.data() + n, 0);
            TOLV_ResampleDestroy(conv);
            y.resize(size_t(expected)); /* trimmed, or padded with silence */
            ASSERT_EQ(y, out.channel(c))
                << row.from << "->" << row.to << " channel " << c;
        }
    }
}

/* round(n / s) frames; at speed 1 the input comes back; otherwise each
 * channel's tone keeps its pitch (its energy does not move to s times it),
 * and a stereo image R = L / 2 holds to the bit (one splice search for
 * both). */
TEST(TolvStretch, LengthPitchAndStereo)
{
    const int rate = 16000, frames = 24007;
    ScratchDir dir;
    const std::vector<float> tones =
        makeSignal(frames, rate, {{{0.5, 500}}, {{0.5, 700}}});
    const std::vector<float> mono =
        makeSignal(frames, rate, {{{0.3, 130}, {0.2, 260}, {0.1, 1100}}}, 0.2f);
    std::vector<float> image(2 * mono.size());
    for (size_t i = 0; i < mono.size(); i++)
        image[2 * i] = mono[i], image[2 * i + 1] = 0.5f * mono[i];
    writeAudio(dir.path("tones.wav"), tones, 2, rate, kFloatWav);
    writeAudio(dir.path("image.wav"), image, 2, rate, kFloatWav);
    writeAudio(dir.path("mono.wav"), mono, 1, rate, kFloatWav);
    for (const char *speed : {"0.5", "0.8", "1", "1.25", "2", "3"})
        for (const char *name : {"tones.wav", "image.wav", "mono.wav"}) {
            const float s = std::stof(speed);
            const Outcome r = run(dir, "tolv stretch @" + std::string(name) +
                                           " @o.wav --speed " + speed +
                                           (name[0] == 'm' ? " --frame-ms 10"
                                                           : " --frame-ms 20"));
            ASSERT_EQ(0, r.status) << speed << " " << r.err;
            const Audio in = readAudio(dir.path(name)),
                        out = readAudio(dir.path("o.wav"));
            EXPECT_EQ(std::llround(frames / double(s)), out.frames) << speed;
            for (int64_t i = 0; name[0] == 'i' && i < out.frames; i++)
                ASSERT_EQ(0.5f * out.samples[size_t(2 * i)],
                          out.samples[size_t(2 * i + 1)])
                    << speed << " " << i;
            for (size_t i = 0; s == 1.0f && i < in.samples.size(); i++)
                ASSERT_NEAR(in.samples[i], out.samples[i], 1e-6f)
                    << name << " " << i;
            for (int c = 0; name[0] == 't' && s != 1.0f && c < 2; c++) {
                std::vector<float> y = out.channel(c);
                y.resize(y.size() * 9 / 10); /* the tail fades into silence */
                EXPECT_GT(toneAmplitude(y, rate, 500 + 200 * c), 0.4)
                    << speed << " channel " << c;
                EXPECT_LT(toneAmplitude(y, rate, (500 + 200 * c) * s), 0.05)
                    << speed;
            }
        }
}

/* A FIFO, a device or standard output is written in place, streamed in the
 * input's container, and stays what it is; when the audio goes to standard
 * output the report goes to stderr. A symlink keeps pointing at its file,
 * which gets the output. New files get 0666 less the umask, neither a
 * temporary file's private mode nor a fixed one. (The devices are nodes in
 * the scratch folder, so that a faulty build cannot replace /dev/null.) */
TEST(TolvOutputs, NonRegularOutputsAreWrittenInPlace)
{
    ScratchDir dir;
    const int kAu = SF_FORMAT_AU | SF_FORMAT_PCM_16;
    writeAudio(dir.path("in.au"), makeSignal(4000, 16000, {{{0.5, 440}}}), 1,
               16000, kAu);
    ASSERT_EQ(0, run(dir, "cd @ && mkfifo fifo && mknod null c 1 3 && mknod "
                          "full c 1 7 && echo old >target.au && ln -s "
                          "target.au link.au && umask 002 && tolv resample "
                          "in.au named.au --rate 8000")
                     .status);
    const std::vector<float> named = readAudio(dir.path("named.au")).samples;
    const struct {
        const char *out, *after, *report; /* on stderr after a '>' */
    } rows[] = {
        // clang-format off
        {"@fifo", "& cat @fifo >@got.au; wait", "fifo: 2000 frames"},
        {"@fifo", ">@fifo & cat @fifo >@got.au; wait", "fifo: 2000 frames"},
        {"-", ">@got.au", "-: 2000 frames (expected 2000)"},
        {"/dev/stdout", ">@got.au", "/dev/stdout: 2000 frames"},
        {"@link.au", "&& cp @target.au @got.au", "link.au: 2000 frames"},
        {"@null", "&& cp @named.au @got.au", "null: 2000 frames"},
        // clang-format on
    };
    for (const auto &row : rows) {
        const Outcome r = run(dir, std::string("tolv resample @in.au ") +
                                       row.out + " --rate 8000 " + row.after);
        EXPECT_EQ(0, r.status) << row.out << r.err;
        EXPECT_NE(std::string::npos,
                  (row.after[0] == '>' ? r.err : r.out).find(row.report))
            << r.out << r.err;
        const Audio got = readAudio(dir.path("got.au"));
        EXPECT_EQ(kAu, got.format) << row.out;
        EXPECT_EQ(named, got.samples) << row.out;
    }
    EXPECT_EQ(
        "prw-\nlrwx\ncrw-\nlrwx\n",
        run(dir, "stat -c %A @fifo @link.au @null /dev/stdout | cut -c-4").out);
    Outcome r = run(dir, "tolv spectrum @in.au --csv @full");
    EXPECT_TRUE(r.status == 1 && r.says("full: No space left on device"))
        << r.err;
    r = run(dir, "umask 002 && tolv spectrum @in.au --csv @o.csv >&2 && "
                 "stat -c %a @named.au @o.csv");
    EXPECT_EQ("664\n664\n", r.out) << r.err;
}

/* A run stopped by a signal while it writes (its output open unnamed, or
 * under a hidden name), even by one that cannot be caught, leaves the folder
 * holding only the input. A long prototype makes the run take seconds; the
 * shell becomes tolv (exec), so that SIGINT reaches it as from a terminal. */
TEST(TolvOutputs, InterruptedRunLeavesNothingBehind)
{
    for (int sig : {SIGTERM, SIGINT, SIGKILL}) {
        ScratchDir dir;
        writeAudio(dir.path("in.wav"),
                   makeSignal(30 * 44100, 44100, {{{0.5, 440}}}), 1, 44100);
        const Outcome r = run(
            dir, "(for i in $(seq 2000); do ls -l /proc/$$/fd | grep -qE "
                 "'@.*(deleted|[.]tmp-)' && echo writing && break; sleep "
                 "0.005; done; kill -" +
                     std::to_string(sig) +
                     " $$) & exec tolv resample @in.wav @out.wav --rate 48000 "
                     "--order 800");
        EXPECT_TRUE(r.says("writing")) << "the output never appeared";
        EXPECT_EQ(128 + sig, r.status) << "the run ended before the signal";
        EXPECT_EQ("in.wav\n", run(dir, "ls -A @").out) << sig;
    }
}

} // namespace
