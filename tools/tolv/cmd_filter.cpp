/*
 * tolv filter: runs a filter of a text over a file, all channels at once
 * through the filter's interleaved form, once its measured response shows
 * that it is stable and keeps its pass band (unless --force).
 */
#include <cstdio>

#include "audio.h"
#include "cli.h"
#include "commands.h"
#include "filtertext.h"
#include "response.h"

namespace cli {

int runFilter(const Arguments &argv)
{
    Args args(argv, {{"--encoding"}, {"--force"}});
    if (args.positional().size() != 3)
        throw UsageError("needs IN, OUT and a filter text");
    const std::string &in = args.positional()[0], &out = args.positional()[1];
    std::string text = normalizeFilterText(args.positional()[2]);

    AudioReader reader(in);
    checkOutputs({in}, {out});
    checkAudioName(out);
    FilterText spec = readFilterText(text);
    // The file supplies what the text leaves out; the text's own keys come
    // first and so win.
    if (!spec.fsGiven)
        text += format(", fs=%d", reader.rate());
    else if (spec.fs != reader.rate())
        std::fprintf(stderr,
                     "tolv filter: note: the text's fs of %d Hz is not the "
                     "rate of %s (%d Hz); its edges are placed for %d Hz\n",
                     spec.fs, in.c_str(), reader.rate(), spec.fs);
    if (!spec.channelsGiven)
        text += format(", num_channels=%d", reader.channels());
    else if (spec.channels != reader.channels())
        throw Failure(format("the text asks for %d channels but %s has %d",
                             spec.channels, in.c_str(), reader.channels()));

    const FilterText full = readFilterText(text);
    checkEdgesBelowNyquist(full);
    _TOLV_FILTER *filter = createFilterOrFail(text);
    struct Guard {
        _TOLV_FILTER *f;
        ~Guard() { TOLV_DestroyFilter(f); }
    } guard{filter};
    if (!args.has("--force"))
        checkRunnable(text, full);

    const int channels = reader.channels();
    const int64_t block = 8192;
    std::vector<float> buffer(size_t(block * channels));
    AudioWriter writer(out, reader.format(), channels, reader.rate(),
                       args.get("--encoding", ""));
    Progress progress("filtering", reader.frames());
    for (;;) {
        int64_t got = reader.read(buffer.data(), block);
        if (got == 0)
            break;
        TOLV_Filter(filter, buffer.data(), buffer.data(),
                    uint32_t(got * channels));
        writer.write(buffer.data(), got);
        progress.update(writer.framesWritten());
    }
    progress.finish();
    writer.commit();
    reportOutput(writer, reader.framesRead());
    return 0;
}

} // namespace cli
