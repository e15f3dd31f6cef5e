// Files: existence, modes, sizes, raw round trips, null handles.
#include "keel.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

class KeelIo : public testing::Test {
protected:
  void SetUp() override {
    char pattern[] = "/tmp/keel_io_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    std::remove(path("data.bin").c_str());
    std::remove(path("folder").c_str());
    rmdir(dir_.c_str());
  }
  std::string path(const char *name) const { return dir_ + "/" + name; }
  std::string dir_;
};

TEST_F(KeelIo, ExistsOnlyForRegularFiles) {
  EXPECT_FALSE(KEELIO_FileExists(path("data.bin").c_str()));
  EXPECT_FALSE(KEELIO_FileExists(dir_.c_str()));
  ASSERT_EQ(mkdir(path("folder").c_str(), 0700), 0);
  EXPECT_FALSE(KEELIO_FileExists(path("folder").c_str()));
  EXPECT_FALSE(KEELIO_FileExists("/dev/null"));
  EXPECT_FALSE(KEELIO_FileExists(nullptr));
  KEEL_FILE f = KEELIO_Open(path("data.bin").c_str(), "w");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(KEELIO_CloseFile(f), 1);
  EXPECT_TRUE(KEELIO_FileExists(path("data.bin").c_str()));
}

TEST_F(KeelIo, WriteThenReadBackRawBytes) {
  // Every byte value, line feeds and zeros included: no translation.
  std::vector<unsigned char> bytes(70000);
  for (size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<unsigned char>((i * 7 + i / 256) & 0xFF);
  KEEL_FILE out = KEELIO_Open(path("data.bin").c_str(), "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(KEELIO_WriteData(out, bytes.data(), 70000), 70000);
  EXPECT_EQ(KEELIO_FileSize(out), 70000);  // pending bytes count too
  EXPECT_EQ(KEELIO_CloseFile(out), 1);

  KEEL_FILE in = KEELIO_Open(path("data.bin").c_str(), "r");
  ASSERT_NE(in, nullptr);
  // The size leaves the position at the start.
  EXPECT_EQ(KEELIO_FileSize(in), 70000);
  std::vector<unsigned char> back(70000 + 10, 0xEE);
  EXPECT_EQ(KEELIO_ReadData(in, back.data(), 10), 10);
  EXPECT_EQ(KEELIO_FileSize(in), 70000);  // and the position afterwards
  EXPECT_EQ(KEELIO_ReadData(in, back.data() + 10, 70000), 70000 - 10);
  EXPECT_EQ(KEELIO_ReadData(in, back.data(), 1), 0);  // end of file
  EXPECT_EQ(KEELIO_CloseFile(in), 1);
  back.resize(70000);
  EXPECT_EQ(back, bytes);
}

TEST_F(KeelIo, WriteModeEmptiesAnExistingFile) {
  KEEL_FILE f = KEELIO_Open(path("data.bin").c_str(), "w");
  KEELIO_WriteData(f, "0123456789", 10);
  KEELIO_CloseFile(f);
  f = KEELIO_Open(path("data.bin").c_str(), "w");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(KEELIO_FileSize(f), 0);
  KEELIO_WriteData(f, "ab", 2);
  KEELIO_CloseFile(f);
  struct stat info;
  ASSERT_EQ(stat(path("data.bin").c_str(), &info), 0);
  EXPECT_EQ(info.st_size, 2);
}

TEST_F(KeelIo, ModesOutsideTheKnownSetAreRefused) {
  EXPECT_EQ(KEELIO_Open(path("missing").c_str(), "r"), nullptr);
  for (const char *mode : {"", "x", "rw", "wt", "q+"})
    EXPECT_EQ(KEELIO_Open(path("data.bin").c_str(), mode), nullptr) << mode;
  EXPECT_FALSE(KEELIO_FileExists(path("data.bin").c_str()));
  EXPECT_EQ(KEELIO_Open(nullptr, "r"), nullptr);
  EXPECT_EQ(KEELIO_Open(path("data.bin").c_str(), nullptr), nullptr);
  for (const char *mode : {"wb", "w+", "rb", "a", "r+b"}) {
    KEEL_FILE f = KEELIO_Open(path("data.bin").c_str(), mode);
    EXPECT_NE(f, nullptr) << mode;
    KEELIO_CloseFile(f);
  }
}

TEST(KeelIoNull, NullHandlesAreHarmless) {
  char buffer[8] = {0};
  EXPECT_EQ(KEELIO_FileSize(nullptr), -1);
  EXPECT_EQ(KEELIO_ReadData(nullptr, buffer, 8), 0);
  EXPECT_EQ(KEELIO_WriteData(nullptr, buffer, 8), 0);
  EXPECT_EQ(KEELIO_CloseFile(nullptr), 0);
}

}  // namespace
