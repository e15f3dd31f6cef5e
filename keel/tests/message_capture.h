// message_capture.h - collects the messages of the base library for tests.
#ifndef KEEL_TESTS_MESSAGE_CAPTURE_H
#define KEEL_TESTS_MESSAGE_CAPTURE_H

#include "keel.h"

#include <mutex>
#include <string>
#include <vector>

struct CapturedMessage {
  int level;
  int code;
  std::string text;
};

// Installs itself as the message handler for its lifetime and restores the
// default handler afterwards.
class MessageCapture {
public:
  MessageCapture() { KEELDEBUG_SetMessageHandler(&MessageCapture::handle, this); }
  ~MessageCapture() { KEELDEBUG_SetMessageHandler(nullptr, nullptr); }
  MessageCapture(const MessageCapture &) = delete;
  MessageCapture &operator=(const MessageCapture &) = delete;

  std::vector<CapturedMessage> messages() {
    std::lock_guard<std::mutex> guard(lock_);
    return messages_;
  }

  void record(int level, int code, const char *text) {
    std::lock_guard<std::mutex> guard(lock_);
    messages_.push_back({level, code, text ? text : "(null)"});
  }

private:
  static void handle(int level, int code, const char *text, void *user) {
    static_cast<MessageCapture *>(user)->record(level, code, text);
  }
  std::mutex lock_;
  std::vector<CapturedMessage> messages_;
};

#endif
