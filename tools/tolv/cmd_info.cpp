/*
 * tolv info: what library this is, where its FFT wisdom lives, and which
 * optional helpers are there.
 */
#include <cstdio>
#include <sndfile.h>
#include <sys/stat.h>

#include "cli.h"
#include "commands.h"
#include "keel.h"
#include "tolv.h"

namespace cli {

namespace {
/* Where the FFT wisdom is kept, and whether that place is there. */
void printWisdom(const char *folder)
{
    struct stat st;
    if (!folder || !*folder) {
        std::printf("FFT wisdom: not kept (KEEL_DATA_PATH is not set; set it "
                    "to a folder to keep plans between runs)\n");
        return;
    }
    if (stat(folder, &st) != 0 || !S_ISDIR(st.st_mode)) {
        std::printf("FFT wisdom: not kept (KEEL_DATA_PATH names %s, which is "
                    "not an existing folder; create it to keep plans between "
                    "runs)\n",
                    folder);
        return;
    }
    std::string path = std::string(folder) + "/brae.optimization";
    if (stat(path.c_str(), &st) == 0)
        std::printf("FFT wisdom: %s (found, %lld bytes)\n", path.c_str(),
                    (long long)st.st_size);
    else
        std::printf("FFT wisdom: %s (not found; it is written when a "
                    "process ends)\n",
                    path.c_str());
}
} // namespace

int runInfo(const Arguments &argv)
{
    Args args(argv, {});
    if (!args.positional().empty())
        throw UsageError("takes no arguments");
    std::printf("%s\n", TOLVVERSION_String());
    for (int i = 0; i < KEELVERSION_Count(); i++) {
        int major = 0, minor = 0, release = 0, build = 0;
        const char *name = KEELVERSION_Get(i, &major, &minor, &release, &build);
        if (name)
            std::printf("  component %s %d.%d.%d.%d\n", name, major, minor,
                        release, build);
    }

    printWisdom(KEELENV_GetEnvValue("KEEL_DATA_PATH"));
    std::printf(
        "settings: tolv.fftw.use_wisdom=%d, tolv.fftw.prepare_plans=%d, "
        "tolv.fftw.max_plan_len=%lld\n",
        KEELSETTINGS_GetBoolEx(nullptr, "tolv.fftw.use_wisdom=[%d]", 1),
        KEELSETTINGS_GetBoolEx(nullptr, "tolv.fftw.prepare_plans=[%d]", 0),
        (long long)KEELSETTINGS_GetIntEx(nullptr, "tolv.fftw.max_plan_len=[%d]",
                                         4096));
    char sndfileVersion[128];
    sf_command(nullptr, SFC_GET_LIB_VERSION, sndfileVersion,
               sizeof sndfileVersion);
    std::printf("audio files: %s\n", sndfileVersion);
    std::string gnuplot = findProgram("gnuplot");
    std::printf("plots: %s\n", gnuplot.empty()
                                   ? "gnuplot not found (install it with: sudo "
                                     "apt-get install gnuplot-nox)"
                                   : ("gnuplot at " + gnuplot).c_str());
    return 0;
}

} // namespace cli
