/*
 * Start-up, reference counting and version reporting, seen from a host that
 * links the shared library: the loader has already started it.
 */
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <string>

#include "fresh_process.h"
#include "keel.h"
#include "tolv.h"

TEST(Lifecycle, LoadTimeReferenceIsAlreadyHeld)
{
    RUN_IN_FRESH_PROCESS({
        FRESH_CHECK(__FFTW_PlanLock != nullptr); /* started before main */
        FRESH_CHECK(KEELVERSION_Count() >= 1);
        FRESH_CHECK(TOLV_Initialize() == 2);
        TOLV_Finalize(); /* back to the load-time reference */
        FRESH_CHECK(__FFTW_PlanLock != nullptr);
    });
}

TEST(Lifecycle, CountTableAcrossShutdownAndRestart)
{
    RUN_IN_FRESH_PROCESS({
        FRESH_CHECK(TOLV_Initialize() == 2);
        FRESH_CHECK(TOLV_Initialize() == 3);
        TOLV_Finalize();
        TOLV_Finalize(); /* 1: still running */
        FRESH_CHECK(__FFTW_PlanLock != nullptr);
        TOLV_Finalize(); /* 0: real shutdown */
        FRESH_CHECK(__FFTW_PlanLock == nullptr);
        TOLV_Finalize(); /* -1: nothing happens */
        TOLV_Finalize(); /* -2 */
        FRESH_CHECK(__FFTW_PlanLock == nullptr);

        /* From a negative count a call makes a full start and the count is
         * 1 again, not -1: the result is the FFT service's 1. */
        FRESH_CHECK(TOLV_Initialize() == 1);
        FRESH_CHECK(__FFTW_PlanLock != nullptr);
        FRESH_CHECK(TOLV_Initialize() == 2);
        TOLV_Finalize();
    });
}

TEST(Lifecycle, StartRegistersTheLibraryVersion)
{
    bool found = false;
    for (int i = 0; i < KEELVERSION_Count(); ++i) {
        int major = 0, minor = 0, release = 0, build = -1;
        const char *name = KEELVERSION_Get(i, &major, &minor, &release, &build);
        if (name != nullptr && strcmp(name, "libtolv") == 0) {
            found = true;
            EXPECT_EQ(major, 3);
            EXPECT_EQ(minor, 7);
            EXPECT_EQ(release, 18);
            EXPECT_EQ(build, 0);
        }
    }
    EXPECT_TRUE(found);
}

TEST(Lifecycle, StartRegistersThePreparePlansDefault)
{
    /* The default is registered for the process, so it wins over a query
     * that carries another default. */
    EXPECT_FALSE(
        KEELSETTINGS_GetBoolEx(nullptr, "tolv.fftw.prepare_plans=[1]"));
}

TEST(Version, NumbersThroughAnySubsetOfPointers)
{
    TOLVVERSION_Number(nullptr, nullptr, nullptr, nullptr);
    int release = -1;
    TOLVVERSION_Number(nullptr, nullptr, &release, nullptr);
    EXPECT_EQ(release, 18);
    int v[4] = {-1, -1, -1, -1};
    TOLVVERSION_Number(&v[0], &v[1], &v[2], &v[3]);
    EXPECT_EQ(v[0], 3);
    EXPECT_EQ(v[1], 7);
    EXPECT_EQ(v[2], 18);
    EXPECT_EQ(v[3], 0);
}

TEST(Version, TextHasTheBuildDateWithAPaddedDay)
{
    const char *first = TOLVVERSION_String();
    const char *second = TOLVVERSION_String();
    EXPECT_EQ(first, second);
    const std::string text = first;
    const std::regex shape("libtolv version 3\\.7\\.18\\.0 \\(built in "
                           "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) "
                           "([ 1-3][0-9]) ([0-9]{4})\\)");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(text, m, shape)) << text;
    /* A single-digit day stands right-aligned: two blanks after the month. */
    const std::string day = m[2];
    if (day[0] == ' ') {
        EXPECT_NE(text.find(m[1].str() + "  " + day.substr(1)),
                  std::string::npos);
    }
    EXPECT_NE(day, "00");
}

TEST(Lifecycle, UnloadShutsDownAndSavesTheWisdom)
{
    /* The destructor runs after the host's static and thread-local
     * destructors; the whole shutdown must still work then. */
    /* The child re-runs this body from the top, so the folder must not
     * depend on the process. */
    const char *root = getenv("TOLV_TEST_TMP");
    const std::string folder =
        std::string(root && *root ? root : "/tmp") + "/unload-saves-wisdom";
    const std::string file = folder + "/brae.optimization";
    ASSERT_EQ(system(("mkdir -p '" + folder + "'").c_str()), 0);
    remove(file.c_str());
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("KEEL_DATA_PATH", folder.c_str(), 1);
            KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.prepare_plans=1");
            KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=64");
            TOLV_OptimizeFFT(true);
            remove(file.c_str()); /* only the unload can write it again */
            exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    FILE *f = fopen(file.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    char head[32] = {0};
    EXPECT_GT(fread(head, 1, sizeof head - 1, f), 10u);
    fclose(f);
    EXPECT_EQ(std::string(head).rfind("(fftw-", 0), 0u) << head;
}
