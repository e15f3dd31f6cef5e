// Settings, environment, start count and version registry.
#include "keel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

// Clients set defaults and register from their load-time constructors; the
// same happens here before main runs.
struct LoadTimeClient {
    LoadTimeClient()
    {
        KEELVERSION_Register("loadtime.client", 3, 7, 18, 0);
        KEELSETTINGS_SetDefaultEx(nullptr, "loadtime.prepare=%d", 5);
    }
} loadTimeClient;

int64_t getInt(const std::string &query)
{
    return KEELSETTINGS_GetIntEx(nullptr, "%s", query.c_str());
}

bool getBool(const char *query)
{
    return KEELSETTINGS_GetBoolEx(nullptr, "%s", query);
}

TEST(KeelSettings, ValueBeatsSetDefaultBeatsTheQuery)
{
    EXPECT_EQ(getInt("loadtime.prepare=[0]"), 5);
    KEELSETTINGS_Clear();
    const char *query = "tolv.plan_len=[4096]";
    EXPECT_EQ(getInt(query), 4096);
    EXPECT_EQ(KEELSETTINGS_SetDefaultEx(nullptr, "tolv.plan_len=%d", 2048), 1);
    EXPECT_EQ(getInt(query), 2048);
    EXPECT_EQ(KEELSETTINGS_SetValueEx(nullptr, "tolv.plan_len=[512]"), 1);
    EXPECT_EQ(getInt(query), 512);
    KEELSETTINGS_SetDefaultEx(nullptr, "tolv.plan_len=%d", 64);
    EXPECT_EQ(getInt(query), 512); // a later default does not override a value
    KEELSETTINGS_Clear();
    EXPECT_EQ(getInt(query), 4096);
    // A source that does not read as the kind asked for gives way to the next.
    KEELSETTINGS_SetValueEx(nullptr, "tolv.wisdom=maybe");
    EXPECT_TRUE(getBool("tolv.wisdom=[1]") && !getBool("tolv.wisdom=[0]"));
    KEELSETTINGS_SetDefaultEx(nullptr, "tolv.wisdom=on");
    EXPECT_TRUE(getBool("tolv.wisdom=[0]"));
    KEELSETTINGS_SetValueEx(nullptr, "tolv.len=[12abc]");
    KEELSETTINGS_SetDefaultEx(nullptr, "tolv.len=[99999999999999999999]");
    EXPECT_EQ(getInt("tolv.len=[4096]"), 4096);
    EXPECT_FALSE(getBool("tolv.no=[?]")); // nothing reads
    EXPECT_EQ(getInt("tolv.none=[]"), 0);
    EXPECT_EQ(KEELSETTINGS_SetValueEx(nullptr, "no equal sign"), 0);
    EXPECT_EQ(KEELSETTINGS_SetValueEx(nullptr, " = 5"), 0);
    EXPECT_EQ(getInt("=[5]"), 0);
    KEELSETTINGS_Clear();
}

TEST(KeelSettings, BracketPlainBlankAndCaseFormsNameTheSameSetting)
{
    for (const char *setter :
         {"lib.resample.order=30", "lib.resample.order=[30]",
          "  Lib.Resample.ORDER = [ 30 ] "}) {
        for (const char *query :
             {"lib.resample.order=7", "LIB.RESAMPLE.ORDER = [ 7 ]",
              "lib.resample.order"}) {
            KEELSETTINGS_Clear();
            EXPECT_EQ(getInt(query), std::strchr(query, '=') ? 7 : 0) << query;
            ASSERT_EQ(KEELSETTINGS_SetValueEx(nullptr, "%s", setter), 1);
            EXPECT_EQ(getInt(query), 30) << setter << " / " << query;
        }
    }
    KEELSETTINGS_Clear();
}

TEST(KeelSettings, IntegersKeepSixtyFourBitsAndBooleansReadWordsOrNumbers)
{
    // A decimal counts by its whole part.
    // clang-format off
    const std::pair<const char *, int64_t> integers[] = {
        {"9000000000", INT64_C(9000000000)}, {"[-9000000000]", -INT64_C(9000000000)},
        {"[9223372036854775807]", INT64_MAX}, {"[-9223372036854775808]", INT64_MIN}, {"[+12]", 12}, {"[-12.9]", -12}};
    // clang-format on
    for (const auto &c : integers) {
        KEELSETTINGS_Clear();
        EXPECT_EQ(getInt(std::string("tolv.x=") + c.first), c.second);
        KEELSETTINGS_SetValueEx(nullptr, "tolv.x=%s", c.first);
        EXPECT_EQ(getInt("tolv.x=[1]"), c.second) << c.first;
    }
    // clang-format off
    const std::pair<const char *, bool> booleans[] = {
        {"1", true}, {"0", false}, {"tRuE", true}, {"FALSE", false}, {"Yes", true}, {"no", false}, {"ON", true},
        {"off", false}, {"-3", true}, {"0.25", true}};
    // clang-format on
    for (const auto &c : booleans) {
        KEELSETTINGS_SetValueEx(nullptr, "tolv.plans=%s", c.first);
        EXPECT_TRUE(getBool("tolv.plans=[1]") == c.second &&
                    getBool("tolv.plans=[0]") == c.second)
            << c.first;
    }
    KEELSETTINGS_Clear();
}

TEST(KeelEnv, ReadsTheCurrentValueIntoACopyOfTheCallingThread)
{
    const char *name = "KEEL_TEST_ENV_VALUE";
    unsetenv(name);
    EXPECT_EQ(KEELENV_GetEnvValue(name), nullptr);
    setenv(name, "", 1);
    EXPECT_EQ(KEELENV_GetEnvValue(name), nullptr); // empty counts as unset
    setenv(name, "/tmp/one", 1);
    EXPECT_STREQ(KEELENV_GetEnvValue(name), "/tmp/one");
    setenv(name, "/tmp/two/longer/than/the/first", 1);
    const char *kept = KEELENV_GetEnvValue(name);
    unsetenv(name);
    setenv("KEEL_TEST_ENV_OTHER", "another thread's value", 1);
    std::thread([] { KEELENV_GetEnvValue("KEEL_TEST_ENV_OTHER"); }).join();
    EXPECT_STREQ(kept, "/tmp/two/longer/than/the/first"); // outlives both
    EXPECT_EQ(KEELENV_GetEnvValue(name), nullptr);
    EXPECT_EQ(KEELENV_GetEnvValue(nullptr), nullptr);
}

TEST(KeelCore, StartsAreCountedAndVersionsKeepOneEntryPerName)
{
    while (KEELCORE_Finalize() == 1) {
    }
    for (int expected : {1, 1})
        EXPECT_EQ(KEELCORE_Initialize(), expected);
    for (int expected : {1, 1, 0}) // a stray stop is refused
        EXPECT_EQ(KEELCORE_Finalize(), expected);

    // Registered from a load-time constructor; a name registered again is
    // updated.
    auto numbers = [](int index) {
        int v[4] = {-1, -1, -1, -1};
        const char *name = KEELVERSION_Get(index, &v[0], &v[1], &v[2], &v[3]);
        std::string s = name ? name : "none";
        for (int i = 0; i < 4; ++i)
            s += (i ? "." : " ") + std::to_string(v[i]);
        return s;
    };
    // Names are cut to 63 bytes, and the cut name is what matches again.
    const std::string name = std::string(60, 'v') + ".test.long";
    const int before = KEELVERSION_Count();
    EXPECT_EQ(numbers(0), "loadtime.client 3.7.18.0");
    EXPECT_EQ(KEELVERSION_Register(name.c_str(), 1, 2, 3, 4), 1);
    EXPECT_EQ(KEELVERSION_Register(name.c_str(), 5, 6, 7, 8), 1);
    EXPECT_EQ(KEELVERSION_Count(), before + 1);
    EXPECT_EQ(numbers(before), name.substr(0, 63) + " 5.6.7.8");
    EXPECT_EQ(numbers(before + 1), "none -1.-1.-1.-1");
    EXPECT_EQ(KEELVERSION_Register(nullptr, 1, 1, 1, 1), 0);
}

} // namespace
