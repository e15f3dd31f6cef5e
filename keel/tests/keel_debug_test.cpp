// Messages: levels, exact texts through the handler, the stderr fallback.
#include "keel.h"
#include "message_capture.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

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

TEST(KeelDebug, HandlerSwapsWhileOtherThreadsLogLoseNothing) {
  // Each message reaches exactly one of the two handlers, whole.
  MessageCapture first;
  MessageCapture second;  // installed last: now the current handler
  constexpr int kThreads = 4, kMessages = 3000;
  std::vector<std::thread> loggers;
  for (int t = 0; t < kThreads; ++t)
    loggers.emplace_back([t] {
      for (int i = 0; i < kMessages; ++i)
        KEELDEBUG_Warning(-1, "thread %d message %d", t, i);
    });
  for (int swap = 0; swap < 2000; ++swap) {
    MessageCapture *target = swap % 2 ? &first : &second;
    KEELDEBUG_SetMessageHandler(
        [](int level, int code, const char *text, void *user) {
          static_cast<MessageCapture *>(user)->record(level, code, text);
        },
        target);
  }
  for (auto &logger : loggers)
    logger.join();
  const auto a = first.messages(), b = second.messages();
  EXPECT_EQ(a.size() + b.size(), static_cast<size_t>(kThreads * kMessages));
  for (const auto *list : {&a, &b})
    for (const auto &m : *list) {
      ASSERT_EQ(m.level, KEEL_LEVEL_WARNING);
      ASSERT_EQ(m.text.rfind("thread ", 0), 0u) << m.text;
    }
}

}  // namespace
