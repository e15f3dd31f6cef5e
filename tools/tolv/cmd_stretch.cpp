/*
 * tolv stretch: time-scale modification with the linked engine, one SOLAFS
 * object per channel splicing where a search on the channels' mean says, so
 * the stereo image holds. The engine takes input only while it has room and
 * gives output in whole blocks, so input not yet taken waits in a queue; at
 * the end silence is fed behind the input until the tail is out.
 */
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>

#include "audio.h"
#include "cli.h"
#include "commands.h"
#include "stretch_queue.h"
#include "tolv.h"

namespace cli {

namespace {
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

/* Where each output block came from: the engine translates an output
 * position back to the source only within what its input covers, so each
 * block start is asked once the block is out. */
struct CursorLog {
    bool on;
    int64_t step, next = 0;
    std::vector<std::pair<int64_t, int64_t>> rows; /* output, source */
    CursorLog(bool on, int64_t frame) : on(on), step(frame / 2) {}
    void note(_TOLV_LINKED_STRETCH *engine, int64_t made)
    {
        for (; on && next < made; next += step)
            rows.emplace_back(next, _LinkedStretchTranslate(engine, next));
    }
};

struct CursorTable {
    const CursorLog &log;
    int64_t frames; /* the output's length: later blocks were cut */
};

void printCursor(FILE *f, const void *context)
{
    const CursorTable &t = *static_cast<const CursorTable *>(context);
    std::fprintf(f, "output_frame,source_frame\n");
    for (const auto &row : t.log.rows)
        if (row.first < t.frames)
            std::fprintf(f, "%lld,%lld\n", (long long)row.first,
                         (long long)row.second);
}

struct StretchOptions {
    std::string in, out, encoding, cursor;
    double speed = 1.0;
    long frameMs = 20;
};

StretchOptions parseStretch(const Arguments &argv)
{
    Args args(argv, {{"--speed", "--frame-ms", "--encoding", "--cursor"}, {}});
    if (args.positional().size() != 2)
        throw UsageError("needs IN and OUT");
    if (!args.has("--speed"))
        throw UsageError("needs --speed");
    StretchOptions o;
    o.in = args.positional()[0];
    o.out = args.positional()[1];
    o.encoding = args.get("--encoding", "");
    o.cursor = args.get("--cursor", "");
    o.speed = parseReal(args.get("--speed", ""), "--speed");
    // Beyond a speed of 3 a synthesis step can read past the newest input;
    // below 1/100 every stretch of input repeats a hundred times and more,
    // and the output's length runs past what the engine's 32-bit positions
    // and f32 analysis position can place.
    if (!(o.speed >= kMinSpeed) || o.speed > 3.0)
        throw UsageError("--speed must be from 0.01 to 3");
    o.frameMs = parseInteger(args.get("--frame-ms", "20"), "--frame-ms");
    return o;
}

/* The linked engine over every channel behind its queues. */
struct Stretcher {
    _LinkedStretchQueue queue;
    float speed;
    int64_t expected = INT64_MAX;
    CursorLog cursor;
    Stretcher(int channels, const StretchOptions &o, int rate, int64_t frame)
        : queue(int(o.frameMs), rate, channels), speed(float(o.speed)),
          cursor(!o.cursor.empty(), frame)
    {
        if (queue.engine() == nullptr)
            throw Failure("the stretcher could not be created");
    }
    /* Queues `got` interleaved frames (or silence, for a null block). */
    void feed(const float *frames, int64_t got)
    {
        queue.feed(frames, got, speed);
        cursor.note(queue.engine(), queue.made());
    }
    /* Writes what is ready, up to the expected length. */
    void drain(AudioWriter &writer)
    {
        const int64_t count = std::min<int64_t>(
            queue.readyFrames(), expected - writer.framesWritten());
        if (count <= 0)
            return;
        writer.write(queue.ready(), count);
        queue.drop(count);
    }
};
} // namespace

int runStretch(const Arguments &argv)
{
    const StretchOptions o = parseStretch(argv);
    AudioReader reader(o.in);
    checkOutputs({o.in}, {o.out, o.cursor});
    checkAudioName(o.out);
    const int rate = reader.rate(), channels = reader.channels();
    checkStretchRate(rate, channels, o.frameMs);
    const int64_t frame = frameLength(o.frameMs, rate);

    Stretcher st(channels, o, rate, frame);
    // A stream of unknown length is bounded only once it has ended.
    if (reader.frames() >= 0)
        st.expected = std::llround(double(reader.frames()) / o.speed);
    const int64_t block = 8192;
    std::vector<float> frames(static_cast<size_t>(block * channels));
    AudioWriter writer(o.out, reader.format(), channels, rate, o.encoding);
    Progress progress("stretching", reader.frames() < 0 ? 0 : st.expected);
    for (int64_t got; (got = reader.read(frames.data(), block)) != 0;) {
        st.feed(frames.data(), got);
        st.drain(writer);
        progress.update(writer.framesWritten());
    }
    st.expected = std::llround(double(reader.framesRead()) / o.speed);
    // The engine keeps about four frames of input ahead of what it has
    // given out: silence behind the input brings the tail out.
    const int64_t silenceLimit = 16 * frame + int64_t(rate) + block;
    for (int64_t fed = 0; writer.framesWritten() < st.expected; fed += block) {
        if (fed > silenceLimit)
            throw Failure("the stretch did not deliver its tail");
        st.feed(nullptr, block);
        st.drain(writer);
        progress.update(writer.framesWritten());
    }
    progress.finish();
    writer.commit();
    reportOutput(writer, st.expected);
    if (!o.cursor.empty()) {
        CursorTable table{st.cursor, writer.framesWritten()};
        writeTextFile(o.cursor, printCursor, &table);
        std::printf("cursor: %s\n", o.cursor.c_str());
    }
    return 0;
}

} // namespace cli
