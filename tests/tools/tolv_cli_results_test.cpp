/*
 * End to end: the samples tolv writes. Streamed outputs against the library
 * run over the whole signal at once (block seams, channels and the final
 * flush show up as differences), stretches against what a time-scale
 * change must keep.
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
            Outcome r = runTolv({"stretch", dir.path(name), dir.path("o.wav"),
                                 "--speed", speed, "--frame-ms",
                                 name[0] == 'm' ? "10" : "20"});
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
                /* the tail fades into the silence fed behind */
                y.resize(y.size() * 9 / 10);
                EXPECT_GT(toneAmplitude(y, rate, 500 + 200 * c), 0.4)
                    << speed << " channel " << c;
                EXPECT_LT(toneAmplitude(y, rate, (500 + 200 * c) * s), 0.05)
                    << speed;
            }
        }
}

} // namespace
