// debug.cpp - the four message levels and the replaceable handler.
//
// Without a handler a message goes to stderr behind a level prefix, with a
// line feed added only when the text lacks one. A handler receives the text
// exactly as formatted. No level ends the process: callers decide that.
#include "keel.h"
#include "keel_format.h"

#include <pthread.h>
#include <cstdio>
#include <string>

namespace {

// Plain data, constant-initialised: usable from load-time constructors and
// still valid while other libraries run their unload-time destructors.
pthread_mutex_t handlerLock = PTHREAD_MUTEX_INITIALIZER;
KEELDEBUG_Handler currentHandler = nullptr;
void *currentUser = nullptr;

const char *levelPrefix(int level)
{
    switch (level) {
    case KEEL_LEVEL_LOG:
        return "keel log: ";
    case KEEL_LEVEL_WARNING:
        return "keel warning: ";
    case KEEL_LEVEL_ERROR:
        return "keel error: ";
    default:
        return "keel terminal error: ";
    }
}

void emit(int level, int code, const char *format, va_list args)
{
    const std::string text = keel::vformat(format, args);
    pthread_mutex_lock(&handlerLock);
    KEELDEBUG_Handler handler = currentHandler;
    void *user = currentUser;
    pthread_mutex_unlock(&handlerLock);
    // The handler runs outside the lock, so it may itself log or swap handlers.
    if (handler != nullptr) {
        handler(level, code, text.c_str(), user);
        return;
    }
    const bool hasLineFeed = !text.empty() && text.back() == '\n';
    // One call per message keeps lines of concurrent threads apart.
    std::fprintf(stderr, "%s%s%s", levelPrefix(level), text.c_str(),
                 hasLineFeed ? "" : "\n");
}

} // namespace

extern "C" {

KEEL_API void KEELDEBUG_SetMessageHandler(KEELDEBUG_Handler handler, void *user)
{
    pthread_mutex_lock(&handlerLock);
    currentHandler = handler;
    currentUser = handler != nullptr ? user : nullptr;
    pthread_mutex_unlock(&handlerLock);
}

#define KEEL_DEFINE_LEVEL(function, level)                                     \
    KEEL_API void function(int code, const char *format, ...)                  \
    {                                                                          \
        va_list args;                                                          \
        va_start(args, format);                                                \
        emit(level, code, format, args);                                       \
        va_end(args);                                                          \
    }

KEEL_DEFINE_LEVEL(KEELDEBUG_Log, KEEL_LEVEL_LOG)
KEEL_DEFINE_LEVEL(KEELDEBUG_Warning, KEEL_LEVEL_WARNING)
KEEL_DEFINE_LEVEL(KEELDEBUG_Error, KEEL_LEVEL_ERROR)
KEEL_DEFINE_LEVEL(KEELDEBUG_TerminalError, KEEL_LEVEL_TERMINAL)

} // extern "C"
