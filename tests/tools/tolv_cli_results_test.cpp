/*
 * End to end: the samples and tables tolv writes. Streamed outputs against
 * the library run over the whole signal at once (block seams, channels and
 * the final flush show up as differences), stretches against what a
 * time-scale change must keep, and the CSV tables behind the demo's
 * pictures against the bands, delays and speeds that made them.
 */
#include <gtest/gtest.h>

#include "tolv.h"
#include "tolv_cli_support.h"

using namespace clitest;

namespace {

/* The samples are the library's filter over the whole signal, bit for bit,
 * through block seams and both channels. */
TEST(TolvFilter, MatchesTheLibrary)
{
    ScratchDir dir;
    const int rate = 44100, frames = 20000; /* more than two blocks */
    const char *text = "type=lowpass, fpass=1000, order=4";
    writeAudio(dir.path("in.wav"),
               makeSignal(frames, rate,
                          {{{0.4, 100}, {0.4, 10000}}, {{0.3, 200}}}, 0.01f),
               2, rate, kFloatWav);
    Outcome r =
        runTolv({"filter", dir.path("in.wav"), dir.path("o.wav"), text});
    ASSERT_EQ(0, r.status) << r.err;
    const Audio out = readAudio(dir.path("o.wav"));
    std::vector<float> expected = readAudio(dir.path("in.wav")).samples;
    _TOLV_FILTER *f =
        TOLV_CreateFilter("%s, fs=%d, num_channels=2", text, rate);
    TOLV_Filter(f, expected.data(), expected.data(), uint32_t(expected.size()));
    TOLV_DestroyFilter(f);
    EXPECT_TRUE(expected == out.samples);
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
        writeAudio(dir.path("in.wav"),
                   makeSignal(row.frames, row.from,
                              {size_t(row.channels), {{0.5, 1000.0}}}, 0.01f),
                   row.channels, row.from, kFloatWav);
        Outcome r =
            runTolv({"resample", dir.path("in.wav"), dir.path("out.wav"),
                     "--rate", std::to_string(row.to), "--type", row.type});
        ASSERT_EQ(0, r.status) << row.from << "->" << row.to << " " << r.err;
        const int64_t expected =
            (int64_t(row.frames) * row.to + row.from / 2) / row.from;
        const Audio in = readAudio(dir.path("in.wav")),
                    out = readAudio(dir.path("out.wav"));
        EXPECT_EQ(expected, out.frames) << row.from << "->" << row.to;
        EXPECT_EQ(row.to, out.rate);
        const std::string config = std::string("type=") + row.type +
                                   (row.type[0] == 'p' ? ", order=128" : "");
        for (int c = 0; c < row.channels; c++) {
            std::vector<float> x = in.channel(c),
                               y(size_t(row.frames * (row.to / row.from + 1) +
                                        64));
            _TOLV_RESAMPLE *conv =
                TOLV_ResampleInit(row.from, row.to, config.c_str());
            int n = TOLV_Resample(conv, x.data(), y.data(), row.frames);
            y.resize(size_t(n) +
                     size_t(std::max(0, TOLV_ResampleFlushBufferSize(conv))));
            n += TOLV_ResampleFlushBuffersEx(conv, y.data() + n, 0);
            TOLV_ResampleDestroy(conv);
            y.resize(size_t(expected),
                     0.0f); /* trimmed, or padded with silence */
            ASSERT_EQ(y, out.channel(c))
                << row.from << "->" << row.to << " channel " << c;
        }
    }
}

/* round(n / s) frames; at speed 1 the input comes back; otherwise each
 * channel's tone keeps its pitch (its energy does not move to s times it),
 * and a stereo image R = L / 2 holds to the bit (one splice search for
 * both). The cursor table has a row per output block of W / 2 frames (W
 * the frame, a multiple of 8), the source at output x speed in floats. */
TEST(TolvStretch, LengthPitchStereoAndCursor)
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
            const int ms = name[0] == 'm' ? 10 : 20;
            Outcome r =
                runTolv({"stretch", dir.path(name), dir.path("o.wav"),
                         "--speed", speed, "--frame-ms", std::to_string(ms),
                         "--cursor", dir.path("c.csv")});
            ASSERT_EQ(0, r.status) << speed << " " << r.err;
            const Audio in = readAudio(dir.path(name)),
                        out = readAudio(dir.path("o.wav"));
            EXPECT_EQ(std::llround(frames / double(s)), out.frames) << speed;
            const int64_t step = ((ms * rate / 1000) & ~7) / 2;
            const auto t = readCsv(dir.path("c.csv"));
            ASSERT_EQ(size_t((out.frames + step - 1) / step + 1), t.size())
                << speed << " " << ms;
            for (size_t k = 1; k < t.size(); k++) {
                ASSERT_EQ(double(int64_t(k - 1) * step), t[k][0]);
                ASSERT_EQ(std::trunc(float(int64_t(k - 1) * step) * s), t[k][1])
                    << speed << " " << k;
            }
            for (int64_t i = 0; name[0] == 'i' && i < out.frames; i++)
                ASSERT_EQ(0.5f * out.samples[size_t(2 * i)],
                          out.samples[size_t(2 * i + 1)])
                    << speed << " " << i;
            for (size_t i = 0; s == 1.0f && i < in.samples.size(); i++)
                ASSERT_NEAR(in.samples[i], out.samples[i], 1e-6f)
                    << name << " " << i;
            for (int c = 0; name[0] == 't' && s != 1.0f && c < 2; c++) {
                std::vector<float> y = out.channel(c);
                y.resize(y.size() * 9 /
                         10); /* the tail fades into the silence fed behind */
                EXPECT_GT(toneAmplitude(y, rate, 500 + 200 * c), 0.4)
                    << speed << " channel " << c;
                EXPECT_LT(toneAmplitude(y, rate, (500 + 200 * c) * s), 0.05)
                    << speed;
            }
        }
}

/* In Hz: the template sits on every bin of the text's bands, relative to
 * the peak the report prints, and is blank in the transition bands. */
TEST(TolvDesignCsv, TemplateFollowsTheBandsOfTheText)
{
    ScratchDir dir;
    Outcome r = runTolv({"design",
                         "type=bandpass, approximation=ellip, fpass1=1000, "
                         "fpass2=2000, fstop1=700, fstop2=2500, Ap=0.5, As=40",
                         "--fs", "16000", "--csv", dir.path("r.csv"), "--plot",
                         dir.path("r.png")});
    ASSERT_EQ(0, r.status) << r.err;
    if (std::system("command -v gnuplot >/dev/null") == 0)
        EXPECT_EQ(std::string("\x89PNG", 4),
                  bytesOf(dir.path("r.png")).substr(0, 4));
    const double peak = numberAfter(r.out, "peak gain: "),
                 binHz = 16000.0 / numberAfter(r.out, "measured on ");
    const auto t = readCsv(dir.path("r.csv"));
    int count[3] = {}; /* bins in the pass band, the stop bands, between */
    double highest = -1e9;
    for (size_t k = 1; k < t.size(); k++) {
        const double hz = t[k][0], db = t[k][1], upper = t[k][3],
                     lower = t[k][4];
        const int band = hz >= 1000 && hz <= 2000  ? 0
                         : hz <= 700 || hz >= 2500 ? 1
                                                   : 2;
        count[band]++;
        ASSERT_EQ(5u, t[k].size()) << k;
        highest = std::max(highest, db);
        ASSERT_TRUE(band < 2 || std::isnan(upper)) << hz;
        ASSERT_TRUE(band == 0 || std::isnan(lower)) << hz;
        ASSERT_TRUE(band != 0 || (std::fabs(upper - peak) < 0.006 &&
                                  std::fabs(lower - peak + 0.5) < 0.006 &&
                                  db >= lower - 0.01))
            << hz;
        ASSERT_TRUE(band != 1 ||
                    (std::fabs(upper - peak + 40) < 0.006 && db <= upper))
            << hz;
    }
    EXPECT_NEAR(1000 / binHz, count[0], 1.5);
    EXPECT_NEAR((700 + 5500) / binHz, count[1], 2.5);
    EXPECT_NEAR(800 / binHz, count[2], 2.5);
    EXPECT_NEAR(peak, highest, 0.006);
}

/* B is A delayed by d frames (or advanced), with its own noise: both
 * methods find d exactly. The table holds both correlations within 0.1 s
 * of zero: the plain one peaks at d with the coefficient printed, the
 * phase transform's at 1 there. */
TEST(TolvDelay, FindsTheDelayPutIn)
{
    ScratchDir dir;
    const int rate = 22050, frames = 2 * rate;
    const std::vector<float> a =
        makeSignal(frames + 4000, rate,
                   {{{0.3, 440}, {0.2, 3000}}, {{0.3, 440}}}, 0.3f, 7);
    const std::vector<float> noise =
        makeSignal(frames, rate, {{}, {}}, 0.05f, 99);
    writeAudio(
        dir.path("a.wav"),
        std::vector<float>(a.begin() + 4000, a.begin() + 4000 + 2 * frames), 2,
        rate);
    for (int delay : {1234, -321}) {
        std::vector<float> b(a.begin() + 2 * (2000 - delay),
                             a.begin() + 2 * (2000 - delay + frames));
        for (size_t i = 0; i < b.size(); i++)
            b[i] += noise[i];
        writeAudio(dir.path("b.wav"), b, 2, rate);
        Outcome r = runTolv({"delay", dir.path("a.wav"), dir.path("b.wav"),
                             "--csv", dir.path("c.csv")});
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ(delay, numberAfter(r.out, "coefficient method: ")) << r.out;
        EXPECT_EQ(delay, numberAfter(r.out, "PHAT method: ")) << r.out;
        EXPECT_NEAR(1000.0 * delay / rate, numberAfter(r.out, "samples ("),
                    0.001);
        const double coefficient =
            numberAfter(r.out, "correlation coefficient ");
        EXPECT_GT(coefficient, 0.9);
        const auto t = readCsv(dir.path("c.csv"));
        const long span = std::lround(0.1 * rate);
        ASSERT_EQ(size_t(2 * span + 2), t.size());
        size_t plain = 1, phat = 1;
        for (size_t k = 1; k < t.size(); k++) {
            ASSERT_EQ(double(long(k) - 1 - span), t[k][0]);
            ASSERT_NEAR(1000.0 * t[k][0] / rate, t[k][1], 1e-4);
            plain = std::fabs(t[k][2]) > std::fabs(t[plain][2]) ? k : plain;
            phat = t[k][3] > t[phat][3] ? k : phat;
        }
        EXPECT_EQ(delay, t[plain][0]);
        EXPECT_EQ(delay, t[phat][0]);
        EXPECT_NEAR(coefficient, t[plain][2], 1e-4);
        EXPECT_EQ(1.0, t[phat][3]);
    }
}

} // namespace
