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
    int64_t made = 0;           /* output frames given so far */
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
        ch.made += made;
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

/* Where each output block came from: the engine translates an output
 * position back to the source only within what its input covers, so each
 * block start is asked once the block is out. */
struct CursorLog {
    bool on;
    int64_t step, next = 0;
    std::vector<std::pair<int64_t, int64_t>> rows; /* output, source */
    CursorLog(bool on, int64_t frame) : on(on), step(frame / 2) {}
    void note(_TOLV_SOLAFS *engine, int64_t made)
    {
        for (; on && next < made; next += step)
            rows.emplace_back(next,
                              TOLV_SolafsTranslateCursorPosition(engine, next));
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

/* One engine per channel and the interleaving of what they give. */
struct Stretcher {
    std::vector<Channel> chans;
    std::vector<float> scratch, interleaved;
    float speed;
    int64_t expected = INT64_MAX;
    CursorLog cursor;
    Stretcher(int channels, const StretchOptions &o, int rate, int64_t frame)
        : chans(size_t(channels)),
          // Output comes in whole blocks of half a frame, never more than
          // asked for once the capacity holds one block.
          scratch(size_t(65536 + frame)), speed(float(o.speed)),
          cursor(!o.cursor.empty(), frame)
    {
        for (Channel &ch : chans)
            ch.engine = TOLV_SolafsCreate(int(o.frameMs), rate, 1);
    }
    /* The engine keeps its memory for the life of the process. */
    ~Stretcher()
    {
        for (Channel &ch : chans)
            TOLV_SolafsDestroy(ch.engine);
    }
    /* Queues `got` interleaved frames (or silence, for a null block). */
    void feed(const float *frames, int64_t got)
    {
        const size_t channels = chans.size();
        for (size_t c = 0; c < channels; c++) {
            Channel &ch = chans[c];
            for (int64_t f = 0; f < got; f++)
                ch.pending.push_back(frames ? frames[size_t(f) * channels + c]
                                            : 0.0f);
            pump(ch, speed, scratch);
        }
        cursor.note(chans[0].engine, chans[0].made);
    }
    /* Writes what every channel has ready, up to the expected length. */
    void drain(AudioWriter &writer)
    {
        size_t count = chans[0].ready.size();
        for (const Channel &ch : chans)
            count = std::min(count, ch.ready.size());
        count = size_t(std::min<int64_t>(int64_t(count),
                                         expected - writer.framesWritten()));
        if (count == 0)
            return;
        const size_t channels = chans.size();
        interleaved.resize(count * channels);
        for (size_t c = 0; c < channels; c++) {
            std::vector<float> &r = chans[c].ready;
            for (size_t f = 0; f < count; f++)
                interleaved[f * channels + c] = r[f];
            r.erase(r.begin(), r.begin() + long(count));
        }
        writer.write(interleaved.data(), int64_t(count));
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
