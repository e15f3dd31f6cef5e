// Settings, environment, start count and version registry.
#include "keel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

// Clients set defaults and register from their load-time constructors; the
// same happens here before main runs.
struct LoadTimeClient {
  LoadTimeClient() {
    KEELVERSION_Register("loadtime.client", 3, 7, 18, 0);
    KEELSETTINGS_SetDefaultEx(nullptr, "loadtime.prepare=%d", 5);
  }
} loadTimeClient;

class KeelSettings : public testing::Test {
protected:
  void SetUp() override { KEELSETTINGS_Clear(); }
  void TearDown() override { KEELSETTINGS_Clear(); }
};

TEST(KeelSettingsLoadTime, DefaultsSetBeforeMainAreVisible) {
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "loadtime.prepare=[0]"), 5);
}

TEST_F(KeelSettings, QueryDefaultThenSetDefaultThenValue) {
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "tolv.fftw.max_plan_len=[4096]"), 4096);
  EXPECT_EQ(KEELSETTINGS_SetDefaultEx(nullptr, "tolv.fftw.max_plan_len=%d", 2048), 1);
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "tolv.fftw.max_plan_len=[4096]"), 2048);
  EXPECT_EQ(KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.max_plan_len=[%d]", 512), 1);
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "tolv.fftw.max_plan_len=[4096]"), 512);
  // A later default does not override a value.
  KEELSETTINGS_SetDefaultEx(nullptr, "tolv.fftw.max_plan_len=%d", 64);
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "tolv.fftw.max_plan_len=[4096]"), 512);
  // Clear forgets values and defaults alike.
  KEELSETTINGS_Clear();
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "tolv.fftw.max_plan_len=[4096]"), 4096);
}

TEST_F(KeelSettings, BracketPlainBlankAndCaseFormsNameTheSameSetting) {
  const char *setters[] = {"libtolv.resample.polyphase.order=30",
                           "libtolv.resample.polyphase.order=[30]",
                           "  LibTolv.Resample.Polyphase.ORDER = [ 30 ] ",
                           "libtolv.resample.polyphase.order = 30"};
  const char *queries[] = {"libtolv.resample.polyphase.order=7",
                           "libtolv.resample.polyphase.order=[7]",
                           "LIBTOLV.RESAMPLE.POLYPHASE.ORDER = [ 7 ]",
                           "libtolv.resample.polyphase.order"};
  for (const char *setter : setters) {
    for (const char *query : queries) {
      KEELSETTINGS_Clear();
      EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "%s", query),
                std::string(query).find('=') == std::string::npos ? 0 : 7)
          << query;
      ASSERT_EQ(KEELSETTINGS_SetValueEx(nullptr, "%s", setter), 1) << setter;
      EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "%s", query), 30)
          << setter << " / " << query;
    }
  }
}

TEST_F(KeelSettings, IntegersKeepAllSixtyFourBits) {
  const struct {
    const char *text;
    int64_t value;
  } cases[] = {
      {"tolv.x=[9000000000]", INT64_C(9000000000)},
      {"tolv.x=-9000000000", -INT64_C(9000000000)},
      {"tolv.x=[9223372036854775807]", INT64_MAX},
      {"tolv.x=[-9223372036854775808]", INT64_MIN},
      {"tolv.x=[4294967296]", INT64_C(4294967296)},
      {"tolv.x=[+12]", 12},
      {"tolv.x=[12.9]", 12},    // a decimal counts by its whole part
      {"tolv.x=[-12.9]", -12},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "%s", c.text), c.value) << c.text;
    KEELSETTINGS_SetValueEx(nullptr, "%s", c.text);
    EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "tolv.x=[1]"), c.value) << c.text;
    KEELSETTINGS_Clear();
  }
}

TEST_F(KeelSettings, BooleanWordsAndNumbers) {
  const struct {
    const char *value;
    bool expected;
  } cases[] = {{"1", true},    {"0", false},  {"true", true},   {"FALSE", false},
               {"Yes", true},  {"no", false}, {"ON", true},     {"off", false},
               {"-3", true},   {"0.0", false}, {"0.25", true},  {"tRuE", true}};
  for (const auto &c : cases) {
    // The value wins whichever way the query's default points.
    KEELSETTINGS_SetValueEx(nullptr, "tolv.fftw.use_wisdom=%s", c.value);
    EXPECT_EQ(KEELSETTINGS_GetBoolEx(nullptr, "tolv.fftw.use_wisdom=[1]"), c.expected)
        << c.value;
    EXPECT_EQ(KEELSETTINGS_GetBoolEx(nullptr, "tolv.fftw.use_wisdom=[0]"), c.expected)
        << c.value;
    KEELSETTINGS_Clear();
  }
}

TEST_F(KeelSettings, UnreadableSourcesGiveWayToTheNext) {
  KEELSETTINGS_SetValueEx(nullptr, "tolv.flag=maybe");
  EXPECT_TRUE(KEELSETTINGS_GetBoolEx(nullptr, "tolv.flag=[1]"));
  EXPECT_FALSE(KEELSETTINGS_GetBoolEx(nullptr, "tolv.flag=[0]"));
  KEELSETTINGS_SetDefaultEx(nullptr, "tolv.flag=on");
  EXPECT_TRUE(KEELSETTINGS_GetBoolEx(nullptr, "tolv.flag=[0]"));

  KEELSETTINGS_SetValueEx(nullptr, "tolv.len=[12abc]");
  KEELSETTINGS_SetDefaultEx(nullptr, "tolv.len=[99999999999999999999]");  // overflows
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "tolv.len=[4096]"), 4096);
  // Nothing readable anywhere: false and 0.
  EXPECT_FALSE(KEELSETTINGS_GetBoolEx(nullptr, "tolv.none=[?]"));
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "tolv.none=[]"), 0);
}

TEST_F(KeelSettings, EntriesWithoutKeyOrValueAreRefused) {
  EXPECT_EQ(KEELSETTINGS_SetValueEx(nullptr, "no equal sign"), 0);
  EXPECT_EQ(KEELSETTINGS_SetValueEx(nullptr, " = 5"), 0);
  EXPECT_EQ(KEELSETTINGS_SetDefaultEx(nullptr, "%s", ""), 0);
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "=[5]"), 0);
}

TEST_F(KeelSettings, LongKeysAndValuesSurvive) {
  const std::string key = "tolv." + std::string(5000, 'k');
  KEELSETTINGS_SetValueEx(nullptr, "%s=[%s1]", key.c_str(), std::string(3000, '0').c_str());
  EXPECT_EQ(KEELSETTINGS_GetIntEx(nullptr, "%s=[2]", key.c_str()), 1);
}

TEST_F(KeelSettings, ConcurrentSettersAndGettersAgree) {
  constexpr int kThreads = 8, kRounds = 2000;
  std::vector<std::thread> threads;
  std::vector<int> failures(kThreads, 0);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failures] {
      for (int i = 0; i < kRounds; ++i) {
        KEELSETTINGS_SetValueEx(nullptr, "tolv.thread%d=[%d]", t, i);
        if (KEELSETTINGS_GetIntEx(nullptr, "tolv.thread%d=[-1]", t) != i)
          ++failures[t];
        // A shared key read by all while others write it: any written value.
        KEELSETTINGS_SetValueEx(nullptr, "tolv.shared=%d", t);
        const int64_t shared = KEELSETTINGS_GetIntEx(nullptr, "tolv.shared=[-1]");
        if (shared < 0 || shared >= kThreads)
          ++failures[t];
      }
    });
  }
  for (auto &thread : threads)
    thread.join();
  for (int t = 0; t < kThreads; ++t)
    EXPECT_EQ(failures[t], 0) << t;
}

TEST(KeelEnv, ReadsTheCurrentValueAtEveryCall) {
  const char *name = "KEEL_TEST_ENV_VALUE";
  unsetenv(name);
  EXPECT_EQ(KEELENV_GetEnvValue(name), nullptr);
  setenv(name, "", 1);
  EXPECT_EQ(KEELENV_GetEnvValue(name), nullptr);  // empty counts as unset
  setenv(name, "/tmp/one", 1);
  const char *first = KEELENV_GetEnvValue(name);
  ASSERT_NE(first, nullptr);
  EXPECT_STREQ(first, "/tmp/one");
  setenv(name, "/tmp/two/longer/than/the/first", 1);
  EXPECT_STREQ(KEELENV_GetEnvValue(name), "/tmp/two/longer/than/the/first");
  // The copy outlives a change of the environment.
  const char *kept = KEELENV_GetEnvValue(name);
  unsetenv(name);
  EXPECT_STREQ(kept, "/tmp/two/longer/than/the/first");
  EXPECT_EQ(KEELENV_GetEnvValue(name), nullptr);
  EXPECT_EQ(KEELENV_GetEnvValue(nullptr), nullptr);
}

TEST(KeelEnv, EachThreadKeepsItsOwnCopy) {
  setenv("KEEL_TEST_ENV_A", "alpha", 1);
  setenv("KEEL_TEST_ENV_B", "beta", 1);
  const char *mine = KEELENV_GetEnvValue("KEEL_TEST_ENV_A");
  std::string other;
  std::thread reader([&other] {
    for (int i = 0; i < 100; ++i)
      other = KEELENV_GetEnvValue("KEEL_TEST_ENV_B");
  });
  reader.join();
  // Calls on another thread did not overwrite this thread's text.
  EXPECT_STREQ(mine, "alpha");
  EXPECT_EQ(other, "beta");
  unsetenv("KEEL_TEST_ENV_A");
  unsetenv("KEEL_TEST_ENV_B");
}

TEST(KeelCore, StartsAreCountedAndAStrayStopIsRefused) {
  while (KEELCORE_Finalize() == 1) {
  }
  EXPECT_EQ(KEELCORE_Finalize(), 0);
  EXPECT_EQ(KEELCORE_Initialize(), 1);
  EXPECT_EQ(KEELCORE_Initialize(), 1);
  EXPECT_EQ(KEELCORE_Finalize(), 1);
  EXPECT_EQ(KEELCORE_Finalize(), 1);
  EXPECT_EQ(KEELCORE_Finalize(), 0);
}

TEST(KeelVersion, RegistryKeepsOneEntryPerName) {
  const int before = KEELVERSION_Count();
  int major = 0, minor = 0, release = 0, build = 0;
  ASSERT_GE(before, 1);  // the load-time client above
  bool foundLoadTime = false;
  for (int i = 0; i < before; ++i) {
    const char *name = KEELVERSION_Get(i, &major, &minor, &release, &build);
    ASSERT_NE(name, nullptr);
    if (std::string(name) == "loadtime.client") {
      foundLoadTime = true;
      EXPECT_EQ(major, 3);
      EXPECT_EQ(minor, 7);
      EXPECT_EQ(release, 18);
      EXPECT_EQ(build, 0);
    }
  }
  EXPECT_TRUE(foundLoadTime);

  EXPECT_EQ(KEELVERSION_Register("version.test", 1, 2, 3, 4), 1);
  EXPECT_EQ(KEELVERSION_Count(), before + 1);
  EXPECT_EQ(KEELVERSION_Register("version.test", 5, 6, 7, 8), 1);  // update
  EXPECT_EQ(KEELVERSION_Count(), before + 1);
  EXPECT_STREQ(KEELVERSION_Get(before, &major, &minor, &release, &build), "version.test");
  EXPECT_EQ(major * 1000 + minor * 100 + release * 10 + build, 5678);
  EXPECT_STREQ(KEELVERSION_Get(before, nullptr, nullptr, nullptr, nullptr), "version.test");
  EXPECT_EQ(KEELVERSION_Get(before + 1, nullptr, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(KEELVERSION_Get(-1, nullptr, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(KEELVERSION_Register(nullptr, 1, 1, 1, 1), 0);
}

}  // namespace
