/*
 * tolv stretch: time-scale modification with one SOLAFS object per channel.
 * The engine takes input only while it has room and gives output in whole
 * blocks, so each channel keeps its own queue of input not yet taken; at
 * the end silence is fed behind the input until the tail is out.
 */
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>

#include "audio.h"
#include "cli.h"
#include "commands.h"
#include "tolv.h"

namespace cli {

namespace {
struct Channel {
    _TOLV_SOLAFS *engine = nullptr;
    std::vector<float> pending; /* input offered but not yet taken */
    std::vector<float> ready;   /* output not yet written */
};

/* Offers a channel's pending input and collects whatever output that
 * allows, until the engine neither takes nor gives anything. */
void pump(Channel &ch, float speed, std::vector<float> &scratch)
{
    for (;;) {
        int taken = 0;
        if (!ch.pending.empty()) {
            taken = TOLV_SolafsInputData(ch.engine, 0, ch.pending.data(),
                                         int(ch.pending.size()), speed);
            ch.pending.erase(ch.pending.begin(), ch.pending.begin() + taken);
        }
        int made = TOLV_SolafsOutputData(ch.engine, 0, scratch.data(),
                                         int(scratch.size()));
        ch.ready.insert(ch.ready.end(), scratch.begin(),
                        scratch.begin() + made);
        if (taken == 0 && made == 0)
            return;
    }
}
/* Speeds below this are refused (see runStretch). */
constexpr double kMinSpeed = 0.01;

/* The frame is rounded down to a multiple of 8 frames; the engine needs a
 * few correlation points, and holds one second of input, of which a pass
 * needs 4.5 frames. */
int64_t frameLength(int64_t frameMs, int rate)
{
    return (frameMs * rate / 1000) & ~int64_t(7);
}

bool frameFits(int64_t frameMs, int rate)
{
    const int64_t frame = frameLength(frameMs, rate);
    return frameMs >= 1 && frame >= 16 && 9 * frame < 2 * int64_t(rate);
}

/* Refuses, before any engine exists, a rate the engine cannot take: it
 * multiplies milliseconds by the rate in 32 bits, and holds one second of
 * every channel. Then the --frame-ms bounds, in ms, for this rate. */
[[noreturn]] void refuseFrameMs(int rate)
{
    long low = 1, high = 1000;
    while (low <= 1000 && !frameFits(low, rate))
        low++;
    while (high >= low && !frameFits(high, rate))
        high--;
    if (low > 1000)
        throw Failure(format("the stretcher needs at least 73 Hz; %d Hz is "
                             "too low: resample first",
                             rate));
    throw UsageError(format("--frame-ms must be from %ld to %ld ms at %d Hz",
                            low, high, rate));
}

void checkStretchRate(int rate, int channels, long frameMs)
{
    if (frameMs < 1 || frameMs > 1000)
        refuseFrameMs(rate);
    const int64_t byWindow = (int64_t(1) << 28) / channels;
    const int64_t byProduct = INT32_MAX / std::max<int64_t>(1, frameMs);
    const int64_t maxRate = std::min(byWindow, byProduct);
    if (rate > maxRate)
        throw Failure(format("the stretcher takes rates up to %lld Hz for %d "
                             "channel%s with --frame-ms %ld; %d Hz is beyond "
                             "it: resample first",
                             (long long)maxRate, channels,
                             channels == 1 ? "" : "s", frameMs, rate));
    if (!frameFits(frameMs, rate))
        refuseFrameMs(rate);
}
} // namespace

int runStretch(const Arguments &argv)
{
    Args args(argv, {{"--speed", "--frame-ms", "--encoding"}, {}});
    if (args.positional().size() != 2)
        throw UsageError("needs IN and OUT");
    if (!args.has("--speed"))
        throw UsageError("needs --speed");
    const std::string &in = args.positional()[0], &out = args.positional()[1];
    double speed = parseReal(args.get("--speed", ""), "--speed");
    // Beyond a speed of 3 a synthesis step can read past the newest input;
    // below 1/100 every stretch of input repeats a hundred times and more,
    // and the output's length runs past what the engine's 32-bit positions
    // and f32 analysis position can place.
    if (!(speed >= kMinSpeed) || speed > 3.0)
        throw UsageError("--speed must be from 0.01 to 3");
    long frameMs = parseInteger(args.get("--frame-ms", "20"), "--frame-ms");

    AudioReader reader(in);
    checkOutputs({in}, {out});
    checkAudioName(out);
    const int rate = reader.rate(), channels = reader.channels();
    checkStretchRate(rate, channels, frameMs);
    const int64_t frame = frameLength(frameMs, rate);

    // A stream of unknown length is bounded only once it has ended.
    int64_t expected = reader.frames() < 0
                           ? INT64_MAX
                           : std::llround(double(reader.frames()) / speed);
    std::vector<Channel> chans(static_cast<size_t>(channels));
    for (Channel &ch : chans)
        ch.engine = TOLV_SolafsCreate(int(frameMs), rate, 1);
    // Output comes in whole blocks of half a frame, never more than asked
    // for once the capacity holds one block.
    std::vector<float> scratch(static_cast<size_t>(65536 + frame));

    const int64_t block = 8192;
    std::vector<float> frames(static_cast<size_t>(block * channels));
    std::vector<float> interleaved;
    AudioWriter writer(out, reader.format(), channels, rate,
                       args.get("--encoding", ""));
    auto drain = [&]() {
        size_t count = chans[0].ready.size();
        for (const Channel &ch : chans)
            count = std::min(count, ch.ready.size());
        count = size_t(std::min<int64_t>(int64_t(count),
                                         expected - writer.framesWritten()));
        if (count == 0)
            return;
        interleaved.resize(count * size_t(channels));
        for (int c = 0; c < channels; c++) {
            std::vector<float> &r = chans[size_t(c)].ready;
            for (size_t f = 0; f < count; f++)
                interleaved[f * size_t(channels) + size_t(c)] = r[f];
            r.erase(r.begin(), r.begin() + long(count));
        }
        writer.write(interleaved.data(), int64_t(count));
    };

    Progress progress("stretching", reader.frames() < 0 ? 0 : expected);
    for (;;) {
        int64_t got = reader.read(frames.data(), block);
        if (got == 0)
            break;
        for (int c = 0; c < channels; c++) {
            Channel &ch = chans[size_t(c)];
            for (int64_t f = 0; f < got; f++)
                ch.pending.push_back(frames[size_t(f * channels + c)]);
            pump(ch, float(speed), scratch);
        }
        drain();
        progress.update(writer.framesWritten());
    }
    expected = std::llround(double(reader.framesRead()) / speed);
    // The engine keeps about four frames of input ahead of what it has
    // given out: silence behind the input brings the tail out.
    const int64_t silenceLimit = 16 * frame + int64_t(rate) + block;
    for (int64_t fed = 0; writer.framesWritten() < expected; fed += block) {
        if (fed > silenceLimit)
            throw Failure("the stretch did not deliver its tail");
        for (Channel &ch : chans) {
            ch.pending.insert(ch.pending.end(), size_t(block), 0.0f);
            pump(ch, float(speed), scratch);
        }
        drain();
        progress.update(writer.framesWritten());
    }
    progress.finish();
    // The engine keeps its memory for the life of the process.
    for (Channel &ch : chans)
        TOLV_SolafsDestroy(ch.engine);
    writer.commit();
    reportOutput(writer, expected);
    return 0;
}

} // namespace cli
