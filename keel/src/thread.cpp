// thread.cpp - threads, sleeping, and plain mutexes.
#include "keel.h"

#include <pthread.h>
#include <cerrno>
#include <ctime>

struct keel_thread {
    pthread_t id;
    KEELTHREAD_Function function;
    void *argument;
    int result;
};

struct keel_mutex {
    pthread_mutex_t lock;
};

namespace {

void *threadEntry(void *handle)
{
    keel_thread *thread = static_cast<keel_thread *>(handle);
    thread->result = thread->function(thread->argument);
    return nullptr;
}

} // namespace

extern "C" {

/* flags is accepted and ignored. The thread is joinable: its handle and its
 * result live until KEELTHREAD_JoinThreadEx, however long ago it ended. */
KEEL_API KEEL_THREAD KEELTHREAD_AddThread(KEELTHREAD_Function function,
                                          void *argument, int)
{
    if (function == nullptr)
        return nullptr;
    keel_thread *thread = new keel_thread{pthread_t(), function, argument, 0};
    if (pthread_create(&thread->id, nullptr, threadEntry, thread) != 0) {
        delete thread;
        return nullptr;
    }
    return thread;
}

/* 1 once the thread has been joined and its handle released; 0 for NULL. */
KEEL_API int KEELTHREAD_JoinThreadEx(KEEL_THREAD thread, int *result)
{
    if (thread == nullptr)
        return 0;
    pthread_join(thread->id, nullptr);
    if (result != nullptr)
        *result = thread->result;
    delete thread;
    return 1;
}

/* Sleeps the whole time even when signals interrupt; <= 0 returns at once. */
KEEL_API void KEELUTILS_sleep_msec(int milliseconds)
{
    if (milliseconds <= 0)
        return;
    struct timespec remaining;
    remaining.tv_sec = milliseconds / 1000;
    remaining.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

KEEL_API KEEL_MUTEX MutexInit(void)
{
    keel_mutex *mutex = new keel_mutex;
    if (pthread_mutex_init(&mutex->lock, nullptr) != 0) {
        delete mutex;
        return nullptr;
    }
    return mutex;
}

/* The three below return 1, or 0 for a null handle, which they ignore. */
KEEL_API int MutexLock(KEEL_MUTEX mutex)
{
    if (mutex == nullptr)
        return 0;
    return pthread_mutex_lock(&mutex->lock) == 0;
}

KEEL_API int MutexUnlock(KEEL_MUTEX mutex)
{
    if (mutex == nullptr)
        return 0;
    return pthread_mutex_unlock(&mutex->lock) == 0;
}

KEEL_API int MutexDestroy(KEEL_MUTEX mutex)
{
    if (mutex == nullptr)
        return 0;
    pthread_mutex_destroy(&mutex->lock);
    delete mutex;
    return 1;
}

} // extern "C"
