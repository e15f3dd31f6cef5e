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
        KEELDEBUG_Warning(-1, "%s: KEEL_DATA_PATH not set!",
                          "__InitializeFFTWPlans");
        KEELDEBUG_Error(7, "rate %u\n", 44100u);
        KEELDEBUG_TerminalError(-1, "Invalid %s.", "object"); // returns
        KEELDEBUG_Error(-1, "<%s|%d>", body.c_str(), 42);
        EXPECT_EQ(capture.All(),
                  "0 -1 plain 1\n"
                  "1 -1 __InitializeFFTWPlans: KEEL_DATA_PATH not set!\n"
                  "2 7 rate 44100\n\n" // the line feed stays
                  "3 -1 Invalid object.\n2 -1 <" +
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
        struct {
            void *p;
            size_t bytes, alignment;
        } objects[] = {{KEELMEM_NewEx(mem, 1, 0), 1, 16},
                       {KEELMEM_NewEx(mem, 100, 0), 100, 16},
                       {KEELMEM_NewEx(mem, 65537, 0), 65537, 16},
                       {KEELMEM_NewFloatVector(mem, 1000), 4000, 16},
                       {KEELMEM_NewAligned(mem, 1, 1000), 1000, 1},
                       {KEELMEM_NewAligned(mem, 64, 1000), 1000, 64},
                       {KEELMEM_NewAligned(mem, 4096, 1000), 1000, 4096},
                       {KEELMEM_NewEx(mem, 0, 0), 0, 16}};
        for (const auto &o : objects) {
            ASSERT_NE(o.p, nullptr) << o.bytes;
            EXPECT_EQ(reinterpret_cast<uintptr_t>(o.p) % o.alignment, 0u)
                << o.alignment;
            const unsigned char *c = static_cast<const unsigned char *>(o.p);
            EXPECT_TRUE(std::all_of(c, c + o.bytes,
                                    [](unsigned char v) { return v == 0; }));
            std::memset(o.p, 0xA5, o.bytes);
        }
        EXPECT_NE(KEELMEM_NewEx(mem, 0, 0),
                  objects[7].p); // empty objects differ too
        for (int alignment : {0, 3, 24})
            EXPECT_EQ(KEELMEM_NewAligned(mem, alignment, 64), nullptr)
                << alignment;
        EXPECT_EQ(KEELMEM_NewAligned(mem, 16, -1), nullptr);
        EXPECT_EQ(KEELMEM_NewFloatVector(mem, -1), nullptr);
        EXPECT_EQ(KEELMEM_GetObjectCount(mem), 9);
        EXPECT_EQ(KEELMEM_GetByteCount(mem), 1 + 100 + 65537 + 4000 + 3000);
        EXPECT_EQ(KEELMEM_DisposeMemDescr(mem), 1);
        EXPECT_EQ(KEELMEM_LiveDescriptorCount(), live);
    }
}

TEST(KeelMem, DisplayReportsThroughTheLogAndStaleHandlesAreRefused)
{
    KEEL_MEMDESCR mem =
        KEELMEM_CreateMemDescrEx("TOLV_XcorCoef local mem", 1024, 0);
    KEELMEM_NewEx(mem, 100, 0);
    KEELMEM_NewFloatVector(mem, 25);
    KEELMEM_NewAligned(mem, 64, 28);
    tolv_test::Messages capture;
    EXPECT_EQ(KEELMEM_DisplayMemDescr(mem), 1);
    EXPECT_EQ(KEELMEM_GetObjectCount(mem), 3); // displaying disposes of nothing
    EXPECT_EQ(KEELMEM_DisposeMemDescr(mem), 1);
    for (KEEL_MEMDESCR gone : {mem, KEEL_MEMDESCR(nullptr)}) {
        EXPECT_EQ(KEELMEM_DisposeMemDescr(gone), 0);
        EXPECT_EQ(KEELMEM_DisplayMemDescr(gone), 0);
        EXPECT_EQ(KEELMEM_GetObjectCount(gone) + KEELMEM_GetByteCount(gone),
                  -2);
        EXPECT_EQ(KEELMEM_GetName(gone), nullptr);
    }
    EXPECT_EQ(KEELMEM_NewEx(nullptr, 16, 0), nullptr);
    EXPECT_EQ(capture.All(), "0 -1 Memory descriptor \"TOLV_XcorCoef local "
                             "mem\": 3 objects, 228 bytes\n\n");
}

TEST(KeelIo, RawBytesRoundTripModesAndNullHandles)
{
    char dir[] = "/tmp/keel_io_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/data.bin";
    const char *file = path.c_str();
    EXPECT_FALSE(KEELIO_FileExists(dir)); // only regular files
    EXPECT_FALSE(KEELIO_FileExists(nullptr));
    for (const char *mode :
         {"r", "", "x", "rw", "wt"}) // missing file, bad modes
        EXPECT_EQ(KEELIO_Open(file, mode), nullptr) << mode;
    EXPECT_FALSE(KEELIO_FileExists(file));
    std::vector<unsigned char> bytes(70000), back(70010, 0xEE);
    for (size_t i = 0; i < bytes.size();
         ++i) // every byte value, no translation
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
    back.resize(70000);
    EXPECT_EQ(back, bytes);
    KEELIO_CloseFile(KEELIO_Open(file, "w")); // empties the file
    f = KEELIO_Open(file, "r+b");
    EXPECT_EQ(KEELIO_FileSize(f), 0);
    KEELIO_CloseFile(f);
    char buffer[8];
    EXPECT_EQ(KEELIO_FileSize(nullptr), -1);
    EXPECT_EQ(KEELIO_ReadData(nullptr, buffer, 8) +
                  KEELIO_WriteData(nullptr, buffer, 8),
              0);
    EXPECT_EQ(KEELIO_CloseFile(nullptr), 0);
    std::remove(file);
    rmdir(dir);
}

TEST(KeelThread, RunsAtOnceJoinsLongAfterItEndedAndSleeps)
{
    std::atomic<int> ran{0};
    KEEL_THREAD thread = KEELTHREAD_AddThread(
        [](void *flag) {
            static_cast<std::atomic<int> *>(flag)->store(1);
            return -123456789;
        },
        &ran, 0);
    ASSERT_NE(thread, nullptr);
    for (int i = 0; i < 200 && ran.load() == 0; ++i) // no join yet
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
}

TEST(KeelMutex, SerialisesThreadsAndIgnoresANullHandle)
{
    KEEL_MUTEX mutex = MutexInit();
    long value = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 100000; ++i) {
                MutexLock(mutex);
                const long seen = value; // two steps: loses counts unlocked
                std::atomic_signal_fence(std::memory_order_seq_cst);
                value = seen + 1;
                MutexUnlock(mutex);
            }
        });
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(value, 400000);
    EXPECT_EQ(MutexDestroy(mutex), 1);
    EXPECT_EQ(MutexLock(nullptr) + MutexUnlock(nullptr) + MutexDestroy(nullptr),
              0);
}

} // namespace
