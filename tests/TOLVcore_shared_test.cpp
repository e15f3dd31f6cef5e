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

/* From the load-time reference of 1 up, down past 0 (the real shutdown) to
 * -2, where nothing happens; from a negative count a call makes a full start
 * and the count is 1 again: the result is the FFT service's 1. */
TEST(Lifecycle, CountTableAcrossShutdownAndRestart)
{
    RUN_IN_FRESH_PROCESS({
        FRESH_CHECK(__FFTW_PlanLock != nullptr); /* started before main */
        FRESH_CHECK(KEELVERSION_Count() >= 1);
        FRESH_CHECK(TOLV_Initialize() == 2);
        FRESH_CHECK(TOLV_Initialize() == 3);
        for (bool running : {true, true, false, false, false}) {
            TOLV_Finalize();
            FRESH_CHECK((__FFTW_PlanLock != nullptr) == running);
        }
        FRESH_CHECK(TOLV_Initialize() == 1);
        FRESH_CHECK(__FFTW_PlanLock != nullptr);
        FRESH_CHECK(TOLV_Initialize() == 2);
    });
}

/* The version reaches a host three ways: the base library's registry, the
 * numbers (through any subset of pointers) and the text, whose build date
 * carries a right-aligned day as the compiler's __DATE__ does. */
TEST(Version, RegistryNumbersAndTextAgree)
{
    auto dotted = [](const int *v) {
        std::string s = std::to_string(v[0]);
        for (int i = 1; i < 4; ++i)
            s += "." + std::to_string(v[i]);
        return s;
    };
    std::string registered;
    for (int i = 0; i < KEELVERSION_Count(); ++i) {
        int v[4] = {-1, -1, -1, -1};
        const char *name = KEELVERSION_Get(i, &v[0], &v[1], &v[2], &v[3]);
        if (name != nullptr && strcmp(name, "libtolv") == 0)
            registered = dotted(v);
    }
    EXPECT_EQ(registered, "3.7.18.0");
    TOLVVERSION_Number(nullptr, nullptr, nullptr, nullptr);
    int v[4] = {-1, -1, -1, -1};
    TOLVVERSION_Number(nullptr, nullptr, &v[2], nullptr);
    EXPECT_EQ(v[2], 18);
    TOLVVERSION_Number(&v[0], &v[1], &v[2], &v[3]);
    EXPECT_EQ(dotted(v), "3.7.18.0");
    const std::string text = TOLVVERSION_String();
    EXPECT_EQ(TOLVVERSION_String(), TOLVVERSION_String());
    const std::regex shape("libtolv version 3\\.7\\.18\\.0 \\(built in "
                           "[A-Z][a-z][a-z] ( [1-9]|[1-3][0-9]) [0-9]{4}\\)");
    EXPECT_TRUE(std::regex_match(text, shape)) << text;
}

/* The start registers the default for the process, so it wins over a query
 * that carries another default. */
TEST(Lifecycle, StartRegistersThePreparePlansDefault)
{
    EXPECT_FALSE(
        KEELSETTINGS_GetBoolEx(nullptr, "tolv.fftw.prepare_plans=[1]"));
}

/* The unload's destructor runs after the host's static and thread-local ones;
 * the whole shutdown, wisdom saving included, must still work then. The
 * child re-runs this body from the top: the folder must not depend on the
 * process. */
TEST(Lifecycle, UnloadShutsDownAndSavesTheWisdom)
{
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
