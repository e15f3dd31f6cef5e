// Threads, sleeping and mutexes.
#include "keel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <vector>

namespace {

int returnArgument(void *argument) { return *static_cast<int *>(argument); }

std::atomic<int> started{0};
int markStarted(void *) {
  started.fetch_add(1);
  return 7;
}

TEST(KeelThread, JoinHandsBackTheResult) {
  for (int value : {0, 1, -1, 123456789}) {
    int argument = value;
    KEEL_THREAD thread = KEELTHREAD_AddThread(returnArgument, &argument, 0);
    ASSERT_NE(thread, nullptr);
    int result = value + 1;
    EXPECT_EQ(KEELTHREAD_JoinThreadEx(thread, &result), 1);
    EXPECT_EQ(result, value);
  }
}

TEST(KeelThread, ThreadRunsAtOnceAndJoinWorksLongAfterItEnded) {
  started = 0;
  KEEL_THREAD thread = KEELTHREAD_AddThread(markStarted, nullptr, 0);
  ASSERT_NE(thread, nullptr);
  // Without any join the thread must run by itself.
  for (int i = 0; i < 200 && started.load() == 0; ++i)
    KEELUTILS_sleep_msec(5);
  EXPECT_EQ(started.load(), 1);
  KEELUTILS_sleep_msec(50);
  int result = 0;
  EXPECT_EQ(KEELTHREAD_JoinThreadEx(thread, &result), 1);
  EXPECT_EQ(result, 7);
  // Joining with no place for the result works too.
  thread = KEELTHREAD_AddThread(markStarted, nullptr, 0);
  EXPECT_EQ(KEELTHREAD_JoinThreadEx(thread, nullptr), 1);
  EXPECT_EQ(started.load(), 2);
}

TEST(KeelThread, NullArgumentsAreRefused) {
  EXPECT_EQ(KEELTHREAD_AddThread(nullptr, nullptr, 0), nullptr);
  int result = 5;
  EXPECT_EQ(KEELTHREAD_JoinThreadEx(nullptr, &result), 0);
  EXPECT_EQ(result, 5);
}

TEST(KeelThread, SleepBlocksAtLeastTheTimeAsked) {
  for (int ms : {0, -5, 1, 50}) {
    const auto begin = std::chrono::steady_clock::now();
    KEELUTILS_sleep_msec(ms);
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(elapsed, std::chrono::milliseconds(ms > 0 ? ms : 0)) << ms;
    EXPECT_LT(elapsed, std::chrono::milliseconds((ms > 0 ? ms : 0) + 1000)) << ms;
  }
}

struct Counter {
  KEEL_MUTEX mutex;
  long value;
};

int addMany(void *argument) {
  Counter *counter = static_cast<Counter *>(argument);
  for (int i = 0; i < 100000; ++i) {
    MutexLock(counter->mutex);
    // A read-modify-write in two steps loses counts without the lock.
    long seen = counter->value;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    counter->value = seen + 1;
    MutexUnlock(counter->mutex);
  }
  return 0;
}

TEST(KeelMutex, SerialisesThreads) {
  Counter counter{MutexInit(), 0};
  ASSERT_NE(counter.mutex, nullptr);
  std::vector<KEEL_THREAD> threads;
  for (int t = 0; t < 4; ++t)
    threads.push_back(KEELTHREAD_AddThread(addMany, &counter, 0));
  for (KEEL_THREAD thread : threads)
    EXPECT_EQ(KEELTHREAD_JoinThreadEx(thread, nullptr), 1);
  EXPECT_EQ(counter.value, 400000);
  EXPECT_EQ(MutexDestroy(counter.mutex), 1);
}

TEST(KeelMutex, NullHandleIsIgnored) {
  EXPECT_EQ(MutexLock(nullptr), 0);
  EXPECT_EQ(MutexUnlock(nullptr), 0);
  EXPECT_EQ(MutexDestroy(nullptr), 0);
  KEEL_MUTEX mutex = MutexInit();
  EXPECT_EQ(MutexLock(mutex), 1);
  EXPECT_EQ(MutexUnlock(mutex), 1);
  EXPECT_EQ(MutexLock(mutex), 1);  // lockable again: it was released
  EXPECT_EQ(MutexUnlock(mutex), 1);
  EXPECT_EQ(MutexDestroy(mutex), 1);
}

}  // namespace
