// Messages: levels, exact texts through the handler, the stderr fallback.
#include "keel.h"
#include "message_capture.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KeelDebug, EachLevelReachesTheHandlerWithItsFormattedText) {
  MessageCapture capture;
  KEELDEBUG_Log(-1, "plain %d", 1);
  KEELDEBUG_Warning(-1, "%s: KEEL_DATA_PATH not set!", "__InitializeFFTWPlans");
  KEELDEBUG_Error(7, "rate %u\n", 44100u);
  KEELDEBUG_TerminalError(-1, "Invalid %s.", "object");
  const auto messages = capture.messages();
  ASSERT_EQ(messages.size(), 4u);
  const struct {
    int level, code;
    const char *text;
  } expected[] = {
      {KEEL_LEVEL_LOG, -1, "plain 1"},
      {KEEL_LEVEL_WARNING, -1, "__InitializeFFTWPlans: KEEL_DATA_PATH not set!"},
      {KEEL_LEVEL_ERROR, 7, "rate 44100\n"},  // line feed kept as it stands
      {KEEL_LEVEL_TERMINAL, -1, "Invalid object."},
  };
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(messages[i].level, expected[i].level) << i;
    EXPECT_EQ(messages[i].code, expected[i].code) << i;
    EXPECT_EQ(messages[i].text, expected[i].text) << i;
  }
}

TEST(KeelDebug, LongMessagesAreNotCut) {
  MessageCapture capture;
  const std::string body(100000, 'x');
  KEELDEBUG_Error(-1, "<%s|%d>", body.c_str(), 42);
  const auto messages = capture.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].text, "<" + body + "|42>");
}

TEST(KeelDebug, DefaultOutputGoesToStderrBehindALevelPrefix) {
  KEELDEBUG_SetMessageHandler(nullptr, nullptr);
  testing::internal::CaptureStderr();
  KEELDEBUG_Log(-1, "one");
  KEELDEBUG_Warning(-1, "two\n");
  KEELDEBUG_Error(-1, "three %d", 3);
  KEELDEBUG_TerminalError(-1, "four\n");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "keel log: one\n"
                 "keel warning: two\n"
                 "keel error: three 3\n"
                 "keel terminal error: four\n");
}

TEST(KeelDebug, TerminalErrorReturnsToTheCaller) {
  // Were the process ended here, the test program would report a crash.
  MessageCapture capture;
  KEELDEBUG_TerminalError(-1, "fatal");
  KEELDEBUG_Log(-1, "still running");
  const auto messages = capture.messages();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[1].text, "still running");
}

TEST(KeelDebug, ResettingTheHandlerStopsDelivery) {
  std::vector<CapturedMessage> seen;
  {
    MessageCapture capture;
    KEELDEBUG_Log(-1, "kept");
    seen = capture.messages();
  }  // handler restored to stderr here
  testing::internal::CaptureStderr();
  KEELDEBUG_Log(-1, "after");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "keel log: after\n");
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].text, "kept");
}

}  // namespace
