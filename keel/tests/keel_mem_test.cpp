// Memory descriptors: clearing, alignment, counts, report, disposal.
#include "keel.h"
#include "message_capture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

namespace {

bool allZero(const void *p, size_t bytes) {
  const unsigned char *c = static_cast<const unsigned char *>(p);
  for (size_t i = 0; i < bytes; ++i)
    if (c[i] != 0)
      return false;
  return true;
}

TEST(KeelMem, ObjectsAreClearedAlignedAndCounted) {
  const int liveBefore = KEELMEM_LiveDescriptorCount();
  KEEL_MEMDESCR mem = KEELMEM_CreateMemDescrEx("Solafs channel", 0, 8);
  ASSERT_NE(mem, nullptr);
  EXPECT_STREQ(KEELMEM_GetName(mem), "Solafs channel");
  EXPECT_EQ(KEELMEM_LiveDescriptorCount(), liveBefore + 1);

  // Allocate, scribble, and allocate again many times: fresh objects must be
  // cleared even when the allocator reuses memory.
  int64_t bytes = 0;
  for (uint32_t size : {1u, 3u, 16u, 17u, 100u, 4096u, 65537u}) {
    for (int round = 0; round < 4; ++round) {
      void *p = KEELMEM_NewEx(mem, size, 0);
      ASSERT_NE(p, nullptr);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u) << size;
      EXPECT_TRUE(allZero(p, size)) << size;
      std::memset(p, 0xA5, size);
      bytes += size;
    }
  }
  EXPECT_EQ(KEELMEM_GetObjectCount(mem), 28);
  EXPECT_EQ(KEELMEM_GetByteCount(mem), bytes);

  float *v = KEELMEM_NewFloatVector(mem, 1000);
  ASSERT_NE(v, nullptr);
  EXPECT_TRUE(allZero(v, 1000 * sizeof(float)));
  EXPECT_EQ(KEELMEM_GetByteCount(mem), bytes + 4000);
  EXPECT_EQ(KEELMEM_NewFloatVector(mem, -1), nullptr);

  EXPECT_EQ(KEELMEM_DisposeMemDescr(mem), 1);
  EXPECT_EQ(KEELMEM_LiveDescriptorCount(), liveBefore);
}

TEST(KeelMem, AlignedObjectsSitOnTheirBoundary) {
  KEEL_MEMDESCR mem = KEELMEM_CreateMemDescrEx("XCorr Memory", 0, 0);
  for (int alignment : {1, 2, 8, 16, 32, 64, 4096}) {
    for (int64_t bytes : {INT64_C(0), INT64_C(5), INT64_C(1000)}) {
      unsigned char *p =
          static_cast<unsigned char *>(KEELMEM_NewAligned(mem, alignment, bytes));
      ASSERT_NE(p, nullptr) << alignment;
      EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % alignment, 0u) << alignment;
      EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u) << alignment;
      EXPECT_TRUE(allZero(p, static_cast<size_t>(bytes)));
    }
  }
  for (int alignment : {0, -16, 3, 24, 48})
    EXPECT_EQ(KEELMEM_NewAligned(mem, alignment, 64), nullptr) << alignment;
  EXPECT_EQ(KEELMEM_NewAligned(mem, 16, -1), nullptr);
  EXPECT_EQ(KEELMEM_GetObjectCount(mem), 21);
  EXPECT_EQ(KEELMEM_DisposeMemDescr(mem), 1);
}

TEST(KeelMem, ZeroByteObjectsHaveDistinctAddresses) {
  KEEL_MEMDESCR mem = KEELMEM_CreateMemDescrEx("empty", 0, 0);
  std::set<void *> seen;
  for (int i = 0; i < 50; ++i) {
    void *p = KEELMEM_NewEx(mem, 0, 0);
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(seen.insert(p).second);
  }
  EXPECT_EQ(KEELMEM_GetByteCount(mem), 0);
  EXPECT_EQ(KEELMEM_GetObjectCount(mem), 50);
  EXPECT_EQ(KEELMEM_DisposeMemDescr(mem), 1);
}

TEST(KeelMem, NullAndStaleHandlesAreRefused) {
  EXPECT_EQ(KEELMEM_DisposeMemDescr(nullptr), 0);
  EXPECT_EQ(KEELMEM_DisplayMemDescr(nullptr), 0);
  EXPECT_EQ(KEELMEM_NewEx(nullptr, 16, 0), nullptr);
  EXPECT_EQ(KEELMEM_NewAligned(nullptr, 16, 16), nullptr);
  EXPECT_EQ(KEELMEM_NewFloatVector(nullptr, 4), nullptr);
  EXPECT_EQ(KEELMEM_GetObjectCount(nullptr), -1);
  EXPECT_EQ(KEELMEM_GetByteCount(nullptr), -1);
  EXPECT_EQ(KEELMEM_GetName(nullptr), nullptr);

  KEEL_MEMDESCR mem = KEELMEM_CreateMemDescrEx(nullptr, 1024, 0);
  EXPECT_STREQ(KEELMEM_GetName(mem), "");
  EXPECT_EQ(KEELMEM_DisposeMemDescr(mem), 1);
  MessageCapture capture;
  EXPECT_EQ(KEELMEM_DisposeMemDescr(mem), 0);  // already gone: not touched
  EXPECT_EQ(KEELMEM_DisplayMemDescr(mem), 0);
  EXPECT_EQ(KEELMEM_GetObjectCount(mem), -1);
  EXPECT_EQ(KEELMEM_GetByteCount(mem), -1);
  EXPECT_EQ(KEELMEM_GetName(mem), nullptr);
  EXPECT_TRUE(capture.messages().empty());
}

TEST(KeelMem, DisplayReportsThroughTheLogAndKeepsTheObjects) {
  KEEL_MEMDESCR mem = KEELMEM_CreateMemDescrEx("TOLV_XcorCoef local mem", 1024, 0);
  KEELMEM_NewEx(mem, 100, 0);
  KEELMEM_NewFloatVector(mem, 25);
  KEELMEM_NewAligned(mem, 64, 28);
  MessageCapture capture;
  EXPECT_EQ(KEELMEM_DisplayMemDescr(mem), 1);
  const auto messages = capture.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].level, KEEL_LEVEL_LOG);
  EXPECT_EQ(messages[0].code, -1);
  EXPECT_EQ(messages[0].text,
            "Memory descriptor \"TOLV_XcorCoef local mem\": 3 objects, 228 bytes\n");
  EXPECT_EQ(KEELMEM_GetObjectCount(mem), 3);
  EXPECT_EQ(KEELMEM_DisposeMemDescr(mem), 1);
}

TEST(KeelMem, DescriptorsOfManyThreadsStayApart) {
  const int liveBefore = KEELMEM_LiveDescriptorCount();
  std::vector<std::thread> threads;
  std::vector<int> failures(6, 0);
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([t, &failures] {
      for (int round = 0; round < 200; ++round) {
        KEEL_MEMDESCR mem = KEELMEM_CreateMemDescrEx("worker", 0, 0);
        for (int i = 1; i <= 8; ++i) {
          unsigned char *p = static_cast<unsigned char *>(KEELMEM_NewEx(mem, 32 * i, 0));
          if (!allZero(p, 32 * i))
            ++failures[t];
          std::memset(p, t + 1, 32 * i);
        }
        if (KEELMEM_GetByteCount(mem) != 32 * 36 || KEELMEM_DisposeMemDescr(mem) != 1)
          ++failures[t];
      }
    });
  }
  for (auto &thread : threads)
    thread.join();
  for (int t = 0; t < 6; ++t)
    EXPECT_EQ(failures[t], 0) << t;
  EXPECT_EQ(KEELMEM_LiveDescriptorCount(), liveBefore);
}

}  // namespace
