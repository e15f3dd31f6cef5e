/*
 * tolv resample: one converter per channel, fed block by block; the
 * polyphase converter's delay is compensated at the start and drained by a
 * flush at the end, so the output lines up with the input.
 */
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "audio.h"
#include "cli.h"
#include "commands.h"
#include "resample_quality.h"
#include "tolv.h"

namespace cli {

namespace {
/* Taps of the polyphase prototype beyond which the tool refuses: rates
 * with a small common divisor make the prototype huge. */
constexpr int64_t kMaxPrototypeTaps = 50000000;

struct Converters {
    std::vector<_TOLV_RESAMPLE *> perChannel;
    ~Converters()
    {
        for (_TOLV_RESAMPLE *r : perChannel)
            TOLV_ResampleDestroy(r);
    }
};
} // namespace

namespace {

long presetOrder(const std::string &name)
{
    const long order = _QualityOrder(name.c_str());
    if (order == 0)
        throw UsageError("--quality must be low, medium, high or very-high");
    return order;
}

struct ResampleOptions {
    std::string in, out, type, encoding;
    long rate = 0, order = 0;
    bool verbose = false;
};

/* --quality or --order, for the polyphase type only. */
long parseOrder(const Args &args, const std::string &type)
{
    if (args.has("--order") && args.has("--quality"))
        throw UsageError("give --quality or --order, not both");
    if ((args.has("--order") || args.has("--quality")) && type != "polyphase")
        throw UsageError("--quality and --order apply to the polyphase type "
                         "only");
    if (!args.has("--order"))
        return presetOrder(args.get("--quality", _kDefaultQuality));
    const long order = parseInteger(args.get("--order", ""), "--order");
    if (order < 1 || order > 1000)
        throw UsageError("--order must be between 1 and 1000");
    return order;
}

ResampleOptions parseResample(const Arguments &argv)
{
    Args args(argv, {{"--rate", "--type", "--order", "--quality", "--encoding"},
                     {"--verbose"}});
    if (args.positional().size() != 2)
        throw UsageError("needs IN and OUT");
    if (!args.has("--rate"))
        throw UsageError("needs --rate");
    ResampleOptions o;
    o.in = args.positional()[0];
    o.out = args.positional()[1];
    o.encoding = args.get("--encoding", "");
    o.rate = parseInteger(args.get("--rate", ""), "--rate");
    if (o.rate < 1 || o.rate > 10000000)
        throw UsageError("--rate must be between 1 and 10000000 Hz");
    o.type = args.get("--type", "polyphase");
    if (o.type != "polyphase" && o.type != "zoh")
        throw UsageError("--type must be polyphase or zoh");
    o.order = parseOrder(args, o.type);
    o.verbose = args.has("--verbose");
    return o;
}

/* The rate grid: L output ticks for every M input frames. */
struct Grid {
    int64_t up, down;
    Grid(int64_t from, int64_t to)
        : up(to / std::gcd(from, to)), down(from / std::gcd(from, to))
    {}
    /* N, the polyphase prototype's length less one, at an order. */
    int64_t prototypeN(long order) const
    {
        return 2 * std::max(up, down) * order;
    }
    /* Output frames for `frames` of input. */
    int64_t outputFor(int64_t frames) const
    {
        return (frames * up + down / 2) / down;
    }
};

void checkPrototype(const ResampleOptions &o, int fromRate, const Grid &grid)
{
    const int64_t taps = grid.prototypeN(o.order);
    if (o.type == "polyphase" && taps > kMaxPrototypeTaps)
        throw Failure(format("%d Hz and %ld Hz have too small a common divisor "
                             "for the polyphase converter (it would need %lld "
                             "taps); pick a nearby rate or a lower --order",
                             fromRate, o.rate, (long long)(taps + 1)));
}

/* The polyphase converter drops D whole output frames of its delay, with
 * D the prototype's group delay of N / 2 grid steps rounded as the
 * converter rounds it (in f32). What rounding leaves is a fixed shift: the
 * output runs that fraction of a frame early (negative) or late. */
void reportShift(const ResampleOptions &o, int fromRate, const Grid &grid)
{
    if (o.type != "polyphase")
        return;
    const int64_t N = grid.prototypeN(o.order);
    const float M = float(grid.down);
    const long D = long(std::round(float(N) / (M + M)));
    const double exact = double(N) / (2.0 * double(grid.down));
    std::fprintf(stderr,
                 "tolv resample: %d Hz to %ld Hz, order %ld: L %lld, M %lld, "
                 "%lld taps; delay %.3f output frames, %ld compensated: the "
                 "output is shifted by %+.3f output frames\n",
                 fromRate, o.rate, o.order, (long long)grid.up,
                 (long long)grid.down, (long long)(N + 1), exact, D,
                 exact - double(D));
}

/* A refused polyphase converter (its tables did not fit in memory) has no
 * state that any call survives, not even its release: it is left to the end
 * of the process. A refused hold keeps a releasable object. */
void keepConverter(const ResampleOptions &o, _TOLV_RESAMPLE *r,
                   const std::string &why, Converters &conv)
{
    if (r && why.empty())
        conv.perChannel.push_back(r);
    else if (r && o.type == "zoh")
        TOLV_ResampleDestroy(r);
}

/* What a refused polyphase set-up could not have: its prototype and its
 * phase rows, N + 1 doubles each. */
std::string memoryHint(const ResampleOptions &o, const Grid &grid)
{
    if (o.type != "polyphase")
        return "";
    const int64_t taps = grid.prototypeN(o.order) + 1;
    return format(" (its %lld taps need about %lld MB; pick a nearby rate "
                  "or a lower --order)",
                  (long long)taps, (long long)(2 * taps * 8 / 1000000 + 1));
}

void createConverters(const ResampleOptions &o, int fromRate, const Grid &grid,
                      int channels, Converters &conv)
{
    const std::string config =
        o.type == "zoh" ? "type=zoh"
                        : format("type=polyphase, order=%ld", o.order);
    takeLibraryErrors();
    for (int c = 0; c < channels; c++) {
        _TOLV_RESAMPLE *r =
            TOLV_ResampleInit(fromRate, int(o.rate), config.c_str());
        std::string why = takeLibraryErrors();
        keepConverter(o, r, why, conv);
        if (!r || !why.empty())
            throw Failure(
                format("cannot convert %d Hz to %ld Hz", fromRate, o.rate) +
                (why.empty() ? "" : ": " + why + memoryHint(o, grid)));
    }
}

/* Buffers of one run, sized from the memory budget: each input frame
 * yields at most ceil(up / down) output frames, so the input block shrinks
 * as the ratio grows and the buffers stay within the budget whatever the
 * rates. */
struct Pipeline {
    int channels;
    int64_t block, capacity, expected = INT64_MAX;
    std::vector<float> frames, in1, interleaved;
    std::vector<std::vector<float>> out1;
    Pipeline(int channels, const Grid &grid)
        : channels(channels),
          block(std::clamp<int64_t>(
              kBlockBudgetBytes /
                  (4 *
                   (2 * channels * (grid.up / grid.down + 1) + channels + 1)),
              1, 8192)),
          capacity(block * (grid.up / grid.down + 1) + 8),
          frames(size_t(block * channels)), in1(size_t(block)),
          interleaved(size_t(capacity * channels)),
          out1(size_t(channels), std::vector<float>(size_t(capacity)))
    {}
    /* Interleaves the first `count` frames of every channel, up to the
     * expected length, into the writer. */
    void emit(AudioWriter &writer, int64_t count)
    {
        count = std::min(count, expected - writer.framesWritten());
        if (count <= 0)
            return;
        for (int c = 0; c < channels; c++)
            for (int64_t f = 0; f < count; f++)
                interleaved[size_t(f * channels + c)] =
                    out1[size_t(c)][size_t(f)];
        writer.write(interleaved.data(), count);
    }
};

/* One block of every channel; all channels run the same phase grid. */
int convertBlock(Converters &conv, Pipeline &p, int64_t got)
{
    int produced = -1;
    for (int c = 0; c < p.channels; c++) {
        for (int64_t f = 0; f < got; f++)
            p.in1[size_t(f)] = p.frames[size_t(f * p.channels + c)];
        int n = TOLV_Resample(conv.perChannel[size_t(c)], p.in1.data(),
                              p.out1[size_t(c)].data(), int(got));
        produced = c == 0 ? n : std::min(produced, n);
    }
    return produced;
}

/* What the polyphase filter still holds comes out of the flush; the
 * zero-order hold has nothing to drain. */
int flushAll(Converters &conv, Pipeline &p)
{
    int flushed = -1;
    for (int c = 0; c < p.channels; c++) {
        _TOLV_RESAMPLE *r = conv.perChannel[size_t(c)];
        int pending = std::max(0, TOLV_ResampleFlushBufferSize(r));
        if (int64_t(p.out1[size_t(c)].size()) < pending)
            p.out1[size_t(c)].resize(size_t(pending));
        if (int64_t(p.interleaved.size()) < int64_t(pending) * p.channels)
            p.interleaved.resize(size_t(pending) * p.channels);
        int n = pending > 0 ? TOLV_ResampleFlushBuffersEx(
                                  r, p.out1[size_t(c)].data(), pending)
                            : 0;
        flushed = c == 0 ? n : std::min(flushed, n);
    }
    return flushed;
}

/* A stream shorter than the converter's delay can come out a few frames
 * short; the missing end is silence. */
void padToExpected(AudioWriter &writer, Pipeline &p)
{
    std::fill(p.interleaved.begin(), p.interleaved.end(), 0.0f);
    while (writer.framesWritten() < p.expected)
        writer.write(
            p.interleaved.data(),
            std::min<int64_t>(p.expected - writer.framesWritten(),
                              int64_t(p.interleaved.size()) / p.channels));
}

} // namespace

int runResample(const Arguments &argv)
{
    const ResampleOptions o = parseResample(argv);
    AudioReader reader(o.in);
    checkOutputs({o.in}, {o.out});
    checkAudioName(o.out);
    const int channels = reader.channels();
    const Grid grid(reader.rate(), o.rate);
    checkPrototype(o, reader.rate(), grid);
    if (o.verbose)
        reportShift(o, reader.rate(), grid);
    Converters conv;
    createConverters(o, reader.rate(), grid, channels, conv);

    // A stream of unknown length is bounded only once it has ended.
    Pipeline p(channels, grid);
    if (reader.frames() >= 0)
        p.expected = grid.outputFor(reader.frames());
    AudioWriter writer(o.out, reader.format(), channels, int(o.rate),
                       o.encoding);
    Progress progress("resampling", reader.frames());
    int64_t consumed = 0;
    for (int64_t got; (got = reader.read(p.frames.data(), p.block)) != 0;) {
        p.emit(writer, convertBlock(conv, p, got));
        consumed += got;
        progress.update(consumed);
    }
    p.expected = grid.outputFor(consumed);
    p.emit(writer, flushAll(conv, p));
    progress.finish();
    padToExpected(writer, p);
    writer.commit();
    reportOutput(writer, p.expected);
    return 0;
}

} // namespace cli
