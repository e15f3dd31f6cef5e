/*
 * tolv resample: one converter per channel, fed block by block; the
 * polyphase converter's delay is compensated at the start and drained by a
 * flush at the end, so the output lines up with the input.
 */
#include <algorithm>
#include <cstdio>
#include <numeric>

#include "audio.h"
#include "cli.h"
#include "commands.h"
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

int runResample(const Arguments &argv)
{
    Args args(argv, {{"--rate", "--type", "--order", "--encoding"}, {}});
    if (args.positional().size() != 2)
        throw UsageError("needs IN and OUT");
    if (!args.has("--rate"))
        throw UsageError("needs --rate");
    const std::string &in = args.positional()[0], &out = args.positional()[1];
    long rate = parseInteger(args.get("--rate", ""), "--rate");
    if (rate < 1 || rate > 10000000)
        throw UsageError("--rate must be between 1 and 10000000 Hz");
    std::string type = args.get("--type", "polyphase");
    if (type != "polyphase" && type != "zoh")
        throw UsageError("--type must be polyphase or zoh");
    long order = 30;
    if (args.has("--order")) {
        if (type != "polyphase")
            throw UsageError("--order applies to the polyphase type only");
        order = parseInteger(args.get("--order", ""), "--order");
        if (order < 1 || order > 1000)
            throw UsageError("--order must be between 1 and 1000");
    }

    AudioReader reader(in);
    checkOutputs({in}, {out});
    checkAudioName(out);
    const int channels = reader.channels();
    const int64_t g = std::gcd(int64_t(reader.rate()), int64_t(rate));
    const int64_t up = rate / g, down = reader.rate() / g;
    if (type == "polyphase" &&
        2 * std::max(up, down) * order > kMaxPrototypeTaps)
        throw Failure(format("%d Hz and %ld Hz have too small a common divisor "
                             "for the polyphase converter (it would need %lld "
                             "taps); pick a nearby rate or a lower --order",
                             reader.rate(), rate,
                             (long long)(2 * std::max(up, down) * order + 1)));

    std::string config =
        type == "zoh" ? "type=zoh" : format("type=polyphase, order=%ld", order);
    Converters conv;
    takeLibraryErrors();
    {
        for (int c = 0; c < channels; c++) {
            _TOLV_RESAMPLE *r =
                TOLV_ResampleInit(reader.rate(), int(rate), config.c_str());
            if (r)
                conv.perChannel.push_back(r);
            std::string why = takeLibraryErrors();
            if (!r || !why.empty())
                throw Failure(format("cannot convert %d Hz to %ld Hz",
                                     reader.rate(), rate) +
                              (why.empty() ? "" : ": " + why));
        }
    }

    // Output frames for `frames` of input; a stream of unknown length is
    // bounded only once it has ended.
    auto outputFor = [&](int64_t frames) {
        return (frames * up + down / 2) / down;
    };
    int64_t expected =
        reader.frames() < 0 ? INT64_MAX : outputFor(reader.frames());
    // Each input frame yields at most ceil(up / down) output frames: the
    // input block shrinks as the ratio grows, so the buffers stay within
    // the budget whatever the rates.
    const int64_t perFrame =
        4 * (2 * channels * (up / down + 1) + channels + 1);
    const int64_t block =
        std::clamp<int64_t>(kBlockBudgetBytes / perFrame, 1, 8192);
    const int64_t capacity = block * (up / down + 1) + 8;
    std::vector<float> frames(static_cast<size_t>(block * channels));
    std::vector<float> in1(static_cast<size_t>(block));
    std::vector<std::vector<float>> out1(
        static_cast<size_t>(channels),
        std::vector<float>(static_cast<size_t>(capacity)));
    std::vector<float> interleaved(static_cast<size_t>(capacity * channels));
    AudioWriter writer(out, reader.format(), channels, int(rate),
                       args.get("--encoding", ""));
    auto emit = [&](int64_t count) {
        count = std::min(count, expected - writer.framesWritten());
        if (count <= 0)
            return;
        for (int c = 0; c < channels; c++)
            for (int64_t f = 0; f < count; f++)
                interleaved[size_t(f * channels + c)] =
                    out1[size_t(c)][size_t(f)];
        writer.write(interleaved.data(), count);
    };

    Progress progress("resampling", reader.frames());
    int64_t consumed = 0;
    for (;;) {
        int64_t got = reader.read(frames.data(), block);
        if (got == 0)
            break;
        int produced = -1;
        for (int c = 0; c < channels; c++) {
            for (int64_t f = 0; f < got; f++)
                in1[size_t(f)] = frames[size_t(f * channels + c)];
            int n = TOLV_Resample(conv.perChannel[size_t(c)], in1.data(),
                                  out1[size_t(c)].data(), int(got));
            // Every channel runs the same phase grid.
            produced = c == 0 ? n : std::min(produced, n);
        }
        emit(produced);
        consumed += got;
        progress.update(consumed);
    }
    expected = outputFor(consumed);
    // What the polyphase filter still holds comes out of the flush; the
    // zero-order hold has nothing to drain.
    int flushed = -1;
    for (int c = 0; c < channels; c++) {
        _TOLV_RESAMPLE *r = conv.perChannel[size_t(c)];
        int pending = std::max(0, TOLV_ResampleFlushBufferSize(r));
        if (int64_t(out1[size_t(c)].size()) < pending)
            out1[size_t(c)].resize(size_t(pending));
        if (int64_t(interleaved.size()) < int64_t(pending) * channels)
            interleaved.resize(size_t(pending) * channels);
        int n = pending > 0 ? TOLV_ResampleFlushBuffersEx(
                                  r, out1[size_t(c)].data(), pending)
                            : 0;
        flushed = c == 0 ? n : std::min(flushed, n);
    }
    emit(flushed);
    progress.finish();
    // A stream shorter than the converter's delay can come out a few frames
    // short; the missing end is silence.
    std::fill(interleaved.begin(), interleaved.end(), 0.0f);
    while (writer.framesWritten() < expected)
        writer.write(interleaved.data(),
                     std::min<int64_t>(expected - writer.framesWritten(),
                                       int64_t(interleaved.size()) / channels));
    writer.commit();
    reportOutput(writer, expected);
    return 0;
}

} // namespace cli
