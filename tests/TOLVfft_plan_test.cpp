/*
 * The FFT plan service: when the wisdom file is read and written, the
 * background pass and its settings, and what a shutdown leaves behind.
 * Test programs start with KEEL_DATA_PATH empty (ctest sets it so); each
 * scenario runs in a fresh process, since some flags are never cleared.
 */
#include "TOLVfft/plan_service.h"

#include <fcntl.h>
#include <fftw3.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>

#include "fresh_process.h"
#include "wisdom_file_support.h"

namespace {

/* Modification time, after optionally setting it to a fixed old moment. */
long long MTime(const std::string &path, bool age = false)
{
    struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
    if (age)
        utimensat(AT_FDCWD, path.c_str(), old, 0);
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (long long)st.st_mtim.tv_sec : -1;
}

} // namespace

TEST(PlanService, LoadWaitsForThePathAndAMissingFileSettlesIt)
{
    RUN_IN_FRESH_PROCESS({
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* unset: not settled */
        FRESH_CHECK(__FFTW_SaveWisdom() == 0);
        std::string dir = MakeTempFolder("late");
        WriteFile(dir + "/brae.optimization", PlanAndExport(48));
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.use_wisdom=off");
        setenv("KEEL_DATA_PATH", dir.c_str(), 1);
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* switched off: not settled */
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.use_wisdom=on");
        FRESH_CHECK(__FFTW_LoadWisdom() == 1); /* read now, once */
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
    });
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("missing");
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
        WriteFile(file, PlanAndExport(40));
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* a later file is not read */
    });
}

TEST(PlanService, SaveRewritesOnlyWhenTheWisdomChanged)
{
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("save");
        const std::string wisdom = PlanAndExport(64);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(ReadFile(file) == wisdom); /* no header, no terminator */
        MTime(file, true);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1); /* identical: untouched */
        FRESH_CHECK(MTime(file) == 1000000000);
        std::string other = wisdom;
        other[other.size() / 2] ^= 1; /* same size, other bytes */
        WriteFile(file, other);
        MTime(file, true);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(ReadFile(file) == wisdom && MTime(file) != 1000000000);
    });
}

TEST(PlanService, PathOfMoreThan511BytesIsCutAndTheCutPathUsed)
{
    RUN_IN_FRESH_PROCESS({
        /* A real file whose path is the first 511 bytes of the data path. */
        std::string d = MakeTempFolder("long") + "/" + std::string(200, 'a');
        FRESH_CHECK(mkdir(d.c_str(), 0700) == 0);
        d += "/" + std::string(200, 'b');
        FRESH_CHECK(mkdir(d.c_str(), 0700) == 0);
        const std::string cut = d + "/" + std::string(510 - d.size(), 'c');
        WriteFile(cut, "");
        setenv("KEEL_DATA_PATH", (cut + "/cut/off").c_str(), 1);
        const std::string wisdom = PlanAndExport(96);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(cut.size() == 511 && ReadFile(cut) == wisdom);
    });
}

TEST(PlanService, PassPlansUpToTheLimitAndSavesOnlyWhenPreparing)
{
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("pass");
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1); /* default: only loads */
        FRESH_CHECK(_FFTW_PassLengthCount() == 0 && MTime(file) == -1);
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=[%d]", 1);
        const struct {
            long long limit;
            int lengths;
        } table[] = {{4096, 9}, {16384, 11}, {1LL << 40, 11}, {15, 0}};
        for (const auto &row : table) {
            KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=%lld",
                                    row.limit);
            FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
            FRESH_CHECK(_FFTW_PassLengthCount() == row.lengths);
        }
        FRESH_CHECK(ReadFile(file) == PlanAndExport(16));
        FRESH_CHECK(_FFTW_PassesStarted() == 5);
    });
}

TEST(PlanService, OnlyAWaitingCallClearsTheThread)
{
    RUN_IN_FRESH_PROCESS({
        UsePath("threads");
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
        KEEL_THREAD first = _FFTW_BackgroundThread();
        FRESH_CHECK(first != nullptr);
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1); /* starts nothing */
        FRESH_CHECK(_FFTW_BackgroundThread() == first);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1); /* joins the first */
        FRESH_CHECK(_FFTW_BackgroundThread() == nullptr);
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1); /* a new pass */
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassesStarted() == 2);
    });
}

static std::string g_warning;
static void Capture(int level, int code, const char *message, void *)
{
    if (level == KEEL_LEVEL_WARNING && code == -1)
        g_warning += message;
}

TEST(PlanService, PassWarnsWhenThePathNeverAppears)
{
    RUN_IN_FRESH_PROCESS({
        KEELDEBUG_SetMessageHandler(Capture, nullptr);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(g_warning ==
                    "__InitializeFFTWPlans: KEEL_DATA_PATH not set!");
    });
}

TEST(PlanService, FinalizeStopsAPassAfterTheCurrentLengthAndRestartKeepsFlags)
{
    RUN_IN_FRESH_PROCESS({
        const std::string file = UsePath("finalize");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=1");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=16384");
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
        /* The pass sleeps before it plans, so the stop is raised before the
         * first length ends: exactly one length is prepared, then saved. */
        FRESH_CHECK(TOLV_FinalizeFFT() == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 1 && MTime(file) != -1);
        FRESH_CHECK(__FFTW_PlanLock == nullptr);
        /* Restart: a new lock, the file not read again, the stop still on. */
        FRESH_CHECK(TOLV_InitializeFFT() == 1 && __FFTW_PlanLock != nullptr);
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 1);
    });
}

/* A pass that was joined once is joined no more: later stops, waits and the
 * unload at exit meet a handle that ended long ago and return at once. Each
 * sequence ends in a normal exit, so that the unload-time stop runs too. */
TEST(PlanService, AJoinedPassIsNeverJoinedAgain)
{
    const std::function<void()> sequences[] = {
        [] { TOLV_FinalizeFFT(); },
        [] {
            TOLV_Finalize();
            TOLV_OptimizeFFT(true);
        },
        [] {
            TOLV_FinalizeFFT();
            TOLV_FinalizeFFT();
        },
    };
    for (const auto &sequence : sequences) {
        RUN_IN_FRESH_PROCESS({
            FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
            sequence();
            exit(0);
        });
    }
}
