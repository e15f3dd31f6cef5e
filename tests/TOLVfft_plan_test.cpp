/*
 * The FFT plan service: when the wisdom file is read and written, the
 * background pass and its settings, and what a shutdown leaves behind.
 * The test programs start with KEEL_DATA_PATH empty (ctest sets it so), and
 * each scenario runs in a fresh process, since the service's flags are
 * process-wide and some are never cleared.
 */
#include "TOLVfft/plan_service.h"

#include <fftw3.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fresh_process.h"

namespace {

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void WriteFile(const std::string &path, const std::string &bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

bool Exists(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

/* Sets the file's modification time to a fixed old moment. */
void AgeFile(const std::string &path)
{
    struct timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
}

long long MTime(const std::string &path)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return -1;
    return (long long)st.st_mtim.tv_sec;
}

/* Wisdom as FFTW exports it right now, taken under the lock. */
std::string CurrentWisdom()
{
    MutexLock(__FFTW_PlanLock);
    char *text = fftwf_export_wisdom_to_string();
    MutexUnlock(__FFTW_PlanLock);
    std::string s = text ? text : "";
    free(text);
    return s;
}

/* Plans one transform so that FFTW holds some wisdom. */
void PlanSomething(int n)
{
    MutexLock(__FFTW_PlanLock);
    float *re = (float *)fftwf_malloc(4 * n);
    fftwf_complex *sp = (fftwf_complex *)fftwf_malloc(8 * n);
    fftwf_plan p = fftwf_plan_dft_r2c_1d(n, re, sp, FFTW_ESTIMATE);
    fftwf_destroy_plan(p);
    fftwf_free(sp);
    fftwf_free(re);
    MutexUnlock(__FFTW_PlanLock);
}

std::string UsePath(const char *tag)
{
    std::string dir = MakeTempFolder(tag);
    setenv("KEEL_DATA_PATH", dir.c_str(), 1);
    return dir;
}

const char kFile[] = "/brae.optimization";

} // namespace

TEST(PlanService, StartsWithPathUnsetAndLoadsOnceItIsSet)
{
    RUN_IN_FRESH_PROCESS({
        FRESH_CHECK(__FFTW_PlanLock != nullptr);
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* unset: not settled */
        FRESH_CHECK(__FFTW_SaveWisdom() == 0);
        std::string dir = MakeTempFolder("late");
        PlanSomething(48);
        WriteFile(dir + kFile, CurrentWisdom());
        setenv("KEEL_DATA_PATH", dir.c_str(), 1);
        FRESH_CHECK(__FFTW_LoadWisdom() == 1); /* read now */
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* and only once */
    });
}

TEST(PlanService, MissingFileSettlesTheQuestion)
{
    RUN_IN_FRESH_PROCESS({
        std::string dir = UsePath("missing");
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
        PlanSomething(40);
        WriteFile(dir + kFile, CurrentWisdom());
        FRESH_CHECK(__FFTW_LoadWisdom() == 0); /* a later file is not read */
    });
}

TEST(PlanService, UseWisdomOffKeepsAwayFromTheFile)
{
    RUN_IN_FRESH_PROCESS({
        std::string dir = UsePath("off");
        PlanSomething(24);
        WriteFile(dir + kFile, "garbage");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.use_wisdom=%s", "off");
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
        FRESH_CHECK(__FFTW_SaveWisdom() == 0);
        FRESH_CHECK(ReadFile(dir + kFile) == "garbage");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.use_wisdom=%d", 1);
        FRESH_CHECK(__FFTW_LoadWisdom() == 1); /* the flag stayed clear */
    });
}

TEST(PlanService, SaveRewritesOnlyWhenTheWisdomChanged)
{
    RUN_IN_FRESH_PROCESS({
        std::string dir = UsePath("save");
        const std::string file = dir + kFile;
        PlanSomething(64);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        const std::string wisdom = CurrentWisdom();
        FRESH_CHECK(!wisdom.empty());
        FRESH_CHECK(ReadFile(file) == wisdom); /* no header, no terminator */

        /* Identical: the file is left alone, modification time included. */
        AgeFile(file);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(MTime(file) == 1000000000);

        /* Same size, other bytes: rewritten. */
        std::string other = wisdom;
        other[other.size() / 2] ^= 1;
        WriteFile(file, other);
        AgeFile(file);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(ReadFile(file) == wisdom);
        FRESH_CHECK(MTime(file) != 1000000000);

        /* Other size, same prefix: rewritten. */
        WriteFile(file, wisdom + " ");
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(ReadFile(file) == wisdom);
    });
}

TEST(PlanService, SaveIntoAFolderThatCannotHoldTheFileFails)
{
    RUN_IN_FRESH_PROCESS({
        std::string dir = MakeTempFolder("nofolder");
        setenv("KEEL_DATA_PATH", (dir + "/does/not/exist").c_str(), 1);
        PlanSomething(32);
        FRESH_CHECK(__FFTW_SaveWisdom() == 0);
    });
}

/* Corrupt, truncated or odd files import as whatever FFTW makes of them and
 * count as loaded; nothing crashes or reads past the buffer. */
class DamagedWisdom : public ::testing::TestWithParam<int> {};

TEST_P(DamagedWisdom, LoadsWithoutHarm)
{
    const int which = GetParam();
    RUN_IN_FRESH_PROCESS({
        std::string dir = UsePath("damaged");
        PlanSomething(128);
        const std::string good = CurrentWisdom();
        std::string bytes;
        switch (which) {
        case 0: bytes = ""; break;
        case 1: bytes = good.substr(0, good.size() / 2); break;
        case 2: bytes = std::string(4096, '('); break;
        case 3: {
            bytes.resize(1 << 20);
            unsigned x = 12345;
            for (char &c : bytes) {
                x = x * 1103515245u + 12345u;
                c = (char)(x >> 24);
            }
            break;
        }
        case 4: bytes = good + std::string(1, '\0') + "tail"; break;
        }
        WriteFile(dir + kFile, bytes);
        FRESH_CHECK(__FFTW_LoadWisdom() == 1);
        PlanSomething(256); /* the planner still works */
    });
}

INSTANTIATE_TEST_SUITE_P(Files, DamagedWisdom, ::testing::Range(0, 5));

TEST(PlanService, PathOfMoreThan511BytesIsCutAndTheCutPathUsed)
{
    RUN_IN_FRESH_PROCESS({
        /* Build a real file whose path is exactly the first 511 bytes of the
         * data path; the service must end up writing to it. */
        std::string base = MakeTempFolder("long");
        std::string d1 = base + "/" + std::string(200, 'a');
        std::string d2 = d1 + "/" + std::string(200, 'b');
        FRESH_CHECK(mkdir(d1.c_str(), 0700) == 0);
        FRESH_CHECK(mkdir(d2.c_str(), 0700) == 0);
        const size_t rest = 511 - d2.size() - 1;
        FRESH_CHECK(rest > 0 && rest < 255);
        std::string cut = d2 + "/" + std::string(rest, 'c');
        FRESH_CHECK(cut.size() == 511);
        WriteFile(cut, "");
        std::string folder = cut + "/tail/that/is/cut/off";
        setenv("KEEL_DATA_PATH", folder.c_str(), 1);
        PlanSomething(96);
        FRESH_CHECK(__FFTW_SaveWisdom() == 1);
        FRESH_CHECK(ReadFile(cut) == CurrentWisdom());
        FRESH_CHECK(__FFTW_LoadWisdom() == 1);
    });
}

TEST(PlanService, DefaultPassOnlyLoads)
{
    RUN_IN_FRESH_PROCESS({
        std::string dir = UsePath("default");
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassesStarted() == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 0);
        FRESH_CHECK(!Exists(dir + kFile));
    });
}

TEST(PlanService, PreparePassHandlesLengthsUpToTheLimitAndSaves)
{
    RUN_IN_FRESH_PROCESS({
        std::string dir = UsePath("prepare");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=[%d]", 1);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 9); /* 16 .. 4096 */
        FRESH_CHECK(ReadFile(dir + kFile) == CurrentWisdom());

        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=%d", 16384);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 11);

        /* Compared in 64 bits: a limit beyond 32 bits takes every length. */
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=%lld",
                                (long long)1 << 40);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 11);

        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=%d", 15);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 0);
        FRESH_CHECK(_FFTW_PassesStarted() == 4);
    });
}

TEST(PlanService, OnlyAWaitingCallClearsTheThread)
{
    RUN_IN_FRESH_PROCESS({
        UsePath("threads");
        FRESH_CHECK(_FFTW_BackgroundThread() == nullptr);
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
        KEEL_THREAD first = _FFTW_BackgroundThread();
        FRESH_CHECK(first != nullptr);
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1); /* starts nothing */
        FRESH_CHECK(_FFTW_BackgroundThread() == first);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1); /* joins the first */
        FRESH_CHECK(_FFTW_BackgroundThread() == nullptr);
        FRESH_CHECK(_FFTW_PassesStarted() == 1);
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1); /* a new pass */
        FRESH_CHECK(_FFTW_BackgroundThread() != nullptr);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassesStarted() == 2);
    });
}

namespace {
std::vector<std::string> g_warnings;
void Capture(int level, int code, const char *message, void *)
{
    if (level == KEEL_LEVEL_WARNING && code == -1)
        g_warnings.push_back(message);
}
} // namespace

TEST(PlanService, PassWarnsWhenThePathNeverAppears)
{
    RUN_IN_FRESH_PROCESS({
        KEELDEBUG_SetMessageHandler(Capture, nullptr);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(g_warnings.size() == 1);
        FRESH_CHECK(g_warnings[0] ==
                    "__InitializeFFTWPlans: KEEL_DATA_PATH not set!");
        FRESH_CHECK(_FFTW_PassLengthCount() == 0);
    });
}

TEST(PlanService, FinalizeStopsAPassAfterTheCurrentLengthAndRestartKeepsFlags)
{
    RUN_IN_FRESH_PROCESS({
        std::string dir = UsePath("finalize");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=1");
        KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=16384");
        FRESH_CHECK(TOLV_OptimizeFFT(false) == 1);
        /* The pass sleeps before it plans, so the stop is raised before
         * the first length ends: exactly one length is prepared. */
        FRESH_CHECK(TOLV_FinalizeFFT() == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 1);
        FRESH_CHECK(Exists(dir + kFile));
        FRESH_CHECK(__FFTW_PlanLock == nullptr);

        /* Restart: new lock, the old handle forgotten, the file not read
         * again, and the stop flag still raised. */
        FRESH_CHECK(TOLV_InitializeFFT() == 1);
        FRESH_CHECK(__FFTW_PlanLock != nullptr);
        FRESH_CHECK(_FFTW_BackgroundThread() == nullptr);
        FRESH_CHECK(__FFTW_LoadWisdom() == 0);
        FRESH_CHECK(TOLV_OptimizeFFT(true) == 1);
        FRESH_CHECK(_FFTW_PassLengthCount() == 1);
        FRESH_CHECK(TOLV_FinalizeFFT() == 1);
    });
}
