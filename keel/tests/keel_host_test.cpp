// Messages, memory descriptors, files, threads and mutexes.
#include "keel.h"
#include "support/messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

TEST(KeelDebug, EachLevelReachesTheHandlerFormattedThenStderrComesBack)
{
    const std::string body(100000, 'x'); // longer than any first buffer
    {
        tolv_test::Messages capture;
        KEELDEBUG_Log(-1, "plain %d", 1);
        KEELDEBUG_Warning(-1, "%s: KEEL_DATA_PATH not set!", "__Init");
        KEELDEBUG_Error(7, "rate %u\n", 44100u); // the line feed stays
        KEELDEBUG_TerminalError(-1, "Invalid %s.", "object"); // returns
        KEELDEBUG_Error(-1, "<%s|%d>", body.c_str(), 42);
        EXPECT_EQ(capture.All(), "0 -1 plain 1\n1 -1 __Init: KEEL_DATA_PATH "
                                 "not set!\n2 7 rate 44100\n\n3 -1 Invalid "
                                 "object.\n2 -1 <" +
                                     body + "|42>\n");
    }
    testing::internal::CaptureStderr();
    KEELDEBUG_Log(-1, "one");
    KEELDEBUG_Warning(-1, "two\n");
    KEELDEBUG_Error(-1, "three %d", 3);
    KEELDEBUG_TerminalError(-1, "four\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "keel log: one\nkeel warning: two\nkeel error: three 3\n"
              "keel terminal error: four\n");
}

TEST(KeelMem, ObjectsAreClearedAlignedCountedAndReleasedTogether)
{
    const int live = KEELMEM_LiveDescriptorCount();
    for (int round = 0; round < 2; ++round) { // round 1 reuses scribbled memory
        KEEL_MEMDESCR mem = KEELMEM_CreateMemDescrEx("Solafs channel", 0, 8);
        EXPECT_STREQ(KEELMEM_GetName(mem), "Solafs channel");
        EXPECT_EQ(KEELMEM_LiveDescriptorCount(), live + 1);
        // clang-format off
        struct {
            void *p;
            size_t bytes, alignment;
        } objects[] = {
            {KEELMEM_NewEx(mem, 1, 0), 1, 16}, {KEELMEM_NewEx(mem, 100, 0), 100, 16},
            {KEELMEM_NewEx(mem, 65537, 0), 65537, 16}, {KEELMEM_NewFloatVector(mem, 1000), 4000, 16},
            {KEELMEM_NewAligned(mem, 1, 1000), 1000, 1}, {KEELMEM_NewAligned(mem, 64, 1000), 1000, 64},
            {KEELMEM_NewAligned(mem, 4096, 1000), 1000, 4096}, {KEELMEM_NewEx(mem, 0, 0), 0, 16}};
        // clang-format on
        for (const auto &o : objects) {
            const char *c = static_cast<const char *>(o.p);
            ASSERT_TRUE(c && reinterpret_cast<uintptr_t>(c) % o.alignment == 0)
                << o.bytes << " aligned to " << o.alignment;
            EXPECT_EQ(std::count(c, c + o.bytes, 0), long(o.bytes));
            std::memset(o.p, 0xA5, o.bytes);
        }
        EXPECT_NE(KEELMEM_NewEx(mem, 0, 0), objects[7].p); // empty ones differ
        for (void *refused :
             {KEELMEM_NewAligned(mem, 0, 64), KEELMEM_NewAligned(mem, 3, 64),
              KEELMEM_NewAligned(mem, 24, 64), KEELMEM_NewAligned(mem, 16, -1),
              (void *)KEELMEM_NewFloatVector(mem, -1),
              KEELMEM_NewEx(nullptr, 16, 0)})
            EXPECT_EQ(refused, nullptr);
        EXPECT_EQ(KEELMEM_GetObjectCount(mem), 9);
        EXPECT_EQ(KEELMEM_GetByteCount(mem), 1 + 100 + 65537 + 4000 + 3000);
        if (round == 1) { // displaying reports through the log, frees nothing
            tolv_test::Messages capture;
            EXPECT_EQ(KEELMEM_DisplayMemDescr(mem), 1);
            EXPECT_EQ(capture.All(), "0 -1 Memory descriptor \"Solafs "
                                     "channel\": 9 objects, 72638 bytes\n\n");
        }
        EXPECT_EQ(KEELMEM_DisposeMemDescr(mem), 1);
        EXPECT_EQ(KEELMEM_LiveDescriptorCount(), live);
        for (KEEL_MEMDESCR gone : {mem, KEEL_MEMDESCR(nullptr)}) {
            EXPECT_EQ(
                KEELMEM_DisposeMemDescr(gone) + KEELMEM_DisplayMemDescr(gone) +
                    KEELMEM_GetObjectCount(gone) + KEELMEM_GetByteCount(gone),
                -2);
            EXPECT_EQ(KEELMEM_GetName(gone), nullptr);
        }
    }
}

TEST(KeelIo, RawBytesRoundTripModesAndNullHandles)
{
    char dir[] = "/tmp/keel_io_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/data.bin";
    const char *file = path.c_str();
    EXPECT_FALSE(KEELIO_FileExists(dir) || KEELIO_FileExists(nullptr));
    for (const char *mode : {"r", "", "x", "rw", "wt"}) // absent, bad modes
        EXPECT_EQ(KEELIO_Open(file, mode), nullptr) << mode;
    EXPECT_FALSE(KEELIO_FileExists(file));
    std::vector<unsigned char> bytes(70000), back(70010, 0xEE);
    for (size_t i = 0; i < bytes.size(); ++i) // every byte, untranslated
        bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
    KEEL_FILE f = KEELIO_Open(file, "w");
    EXPECT_EQ(KEELIO_WriteData(f, bytes.data(), 70000), 70000);
    EXPECT_EQ(KEELIO_FileSize(f), 70000); // pending bytes count
    EXPECT_EQ(KEELIO_CloseFile(f), 1);
    EXPECT_TRUE(KEELIO_FileExists(file));
    f = KEELIO_Open(file, "r");
    EXPECT_EQ(KEELIO_ReadData(f, back.data(), 10), 10);
    EXPECT_EQ(KEELIO_FileSize(f), 70000); // and the position is kept
    EXPECT_EQ(KEELIO_ReadData(f, back.data() + 10, 70000), 70000 - 10);
    EXPECT_EQ(KEELIO_CloseFile(f), 1);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), back.begin()));
    KEELIO_CloseFile(KEELIO_Open(file, "w")); // empties the file
    f = KEELIO_Open(file, "r+b"); // update: writable, a single byte too
    EXPECT_EQ(KEELIO_FileSize(f) + KEELIO_WriteData(f, bytes.data(), 1), 1);
    KEELIO_CloseFile(f);
    char b[8]; // a null handle: -1 for the size, 0 for the rest
    EXPECT_EQ(KEELIO_FileSize(nullptr) + KEELIO_ReadData(nullptr, b, 8) +
                  KEELIO_WriteData(nullptr, b, 8) + KEELIO_CloseFile(nullptr),
              -1);
    std::remove(file);
    rmdir(dir);
}

// The thread runs before any join and its result outlives it; the mutex
// serialises a two-step increment that loses counts unlocked.
TEST(KeelThread, RunsAtOnceJoinsLaterSleepsAndLocks)
{
    std::atomic<int> ran{0};
    auto body = [](void *flag) {
        static_cast<std::atomic<int> *>(flag)->store(1);
        return -123456789;
    };
    KEEL_THREAD thread = KEELTHREAD_AddThread(body, &ran, 0);
    ASSERT_NE(thread, nullptr);
    for (int i = 0; i < 200 && ran.load() == 0; ++i)
        KEELUTILS_sleep_msec(5);
    EXPECT_EQ(ran.load(), 1);
    const auto begin = std::chrono::steady_clock::now();
    KEELUTILS_sleep_msec(50);
    EXPECT_GE(std::chrono::steady_clock::now() - begin,
              std::chrono::milliseconds(50));
    int result = 0;
    EXPECT_EQ(KEELTHREAD_JoinThreadEx(thread, &result), 1);
    EXPECT_EQ(result, -123456789);
    EXPECT_EQ(KEELTHREAD_AddThread(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(KEELTHREAD_JoinThreadEx(nullptr, &result), 0);

    KEEL_MUTEX mutex = MutexInit();
    long value = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 100000; ++i) {
                MutexLock(mutex);
                const long seen = value;
                std::atomic_signal_fence(std::memory_order_seq_cst);
                value = seen + 1;
                MutexUnlock(mutex);
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(value, 400000);
    EXPECT_EQ(MutexDestroy(mutex), 1);
    EXPECT_EQ(MutexLock(nullptr) + MutexUnlock(nullptr) + MutexDestroy(nullptr),
              0);
}

} // namespace
