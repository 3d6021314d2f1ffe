#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/platform/file.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "support/child.h"
#include "support/temp_root.h"

namespace {

namespace fs = std::filesystem;
using zor::test::Child;
using zor::test::TempRoot;

struct Read {
  uint32_t status;
  std::string bytes;
  bool hasBlock;
};

Read ReadFile(const std::string &path) {
  char stale = 0;
  void *buffer = &stale;
  uint32_t length = 99;
  const uint32_t status = ZOR_UTIL_ReadFileToBuf(path.c_str(), &buffer, &length);
  const std::unique_ptr<char, void (*)(void *)> owner(static_cast<char *>(buffer), std::free);
  if (owner == nullptr) return {status, std::string(length, '?'), false};
  EXPECT_EQ(owner.get()[length], '\0');
  return {status, std::string(owner.get(), length), true};
}

class Files : public testing::Test {
 protected:
  TempRoot root_;
  const std::string path_ = root_.Path("/file");
};

TEST_F(Files, BytesComeBackAsTheyWereWritten) {
  for (size_t size : {0u, 1u, 4095u, 4096u, 4097u, 1000000u}) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7);
    ASSERT_EQ(ZOR_UTIL_WriteBufToFile(path_.c_str(), bytes.data(), static_cast<uint32_t>(size)), ZOR_FILE_OK);
    const Read read = ReadFile(path_);
    EXPECT_EQ(read.status, ZOR_FILE_OK);
    EXPECT_TRUE(read.bytes == bytes) << size;
  }
}

TEST_F(Files, AShorterTextReplacesALongerOne) {
  ZOR_UTIL_WriteBufToFile(path_.c_str(), "a longer text", 13);
  ZOR_UTIL_WriteBufToFile(path_.c_str(), "short", 5);
  const std::unique_ptr<char, void (*)(void *)> text(ZOR_UTIL_StrFileToBuf(path_.c_str()), std::free);
  EXPECT_STREQ(text.get(), "short");
}

TEST_F(Files, OfTheKernelAreReadWhole) {
  const Read read = ReadFile("/proc/self/status");
  EXPECT_EQ(read.status, ZOR_FILE_OK);
  EXPECT_NE(read.bytes.find("Threads:"), std::string::npos);
}

TEST_F(Files, WhatIsNotARegularFileIsRefusedAndStays) {
  const std::string pipe = root_.Path("/pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string &path : {pipe, root_.Path("/var"), std::string("/dev/null"), root_.Path("/missing/file")}) {
    const Read read = ReadFile(path);
    EXPECT_EQ(read.status, ZOR_FILE_E_IO) << path;
    EXPECT_FALSE(read.hasBlock);
    EXPECT_EQ(read.bytes, "");
    EXPECT_EQ(ZOR_UTIL_WriteBufToFile(path.c_str(), "x", 1), ZOR_FILE_E_IO) << path;
  }
  EXPECT_TRUE(fs::exists(pipe) && fs::exists("/dev/null"));
}

TEST_F(Files, ALinkIsReadButNotWritten) {
  ZOR_UTIL_WriteBufToFile(path_.c_str(), "kept", 4);
  const std::string link = root_.Path("/link");
  fs::create_symlink(path_, link);
  EXPECT_EQ(ZOR_UTIL_WriteBufToFile(link.c_str(), "x", 1), ZOR_FILE_E_IO);
  EXPECT_EQ(ReadFile(link).bytes, "kept");
}

TEST_F(Files, TooMuchToReadIsRefused) {
  std::ofstream(path_).close();
  fs::resize_file(path_, 0x8000001);
  EXPECT_EQ(ReadFile(path_).status, ZOR_FILE_E_NO_MEMORY);
}

TEST_F(Files, AFileThatCannotBeWrittenWholeIsRemoved) {
  auto writer = Child::Function([this] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {10000, 10000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    const std::string bytes(20000, 'x');
    return ZOR_UTIL_WriteBufToFile(path_.c_str(), bytes.data(), 20000) == ZOR_FILE_E_IO ? 0 : 1;
  });
  EXPECT_EQ(writer.Wait(), 0);
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(Files, AreNeverWritableForOthers) {
  ::umask(0);
  ZOR_UTIL_WriteBufToFile(path_.c_str(), nullptr, 0);
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms(0640));
  EXPECT_EQ(ZOR_UTIL_RemoveAndroidWPerm(path_.c_str(), "777"), ZOR_FILE_OK);
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms(0775));
  for (const char *mode : {"", "8", "7x", "-1", "77777"}) {
    EXPECT_EQ(ZOR_UTIL_RemoveAndroidWPerm(path_.c_str(), mode), ZOR_FILE_E_ARGUMENT) << mode;
  }
  EXPECT_EQ(ZOR_UTIL_RemoveAndroidWPerm(root_.Path("/missing").c_str(), "600"), ZOR_FILE_E_IO);
}

TEST(FixedPaths, LieBeneathTheRootThatTheEnvironmentNames) {
  char out[16];
  ::setenv("ZOR_ROOT", "/root", 1);
  EXPECT_EQ(ZOR_UTIL_FixedPath("/var/x", out, sizeof out), 11u);
  EXPECT_STREQ(out, "/root/var/x");
  ::unsetenv("ZOR_ROOT");
  EXPECT_EQ(ZOR_UTIL_FixedPath("/var/x", out, sizeof out), 6u);
  EXPECT_STREQ(out, "/var/x");
}

TEST(FixedPaths, ThatDoNotFitAreEmpty) {
  char out[12];
  ::setenv("ZOR_ROOT", "/root", 1);
  EXPECT_EQ(ZOR_UTIL_FixedPath("/var/x", out, 12), 11u);
  for (size_t size : {11u, 6u, 5u, 1u}) {
    EXPECT_EQ(ZOR_UTIL_FixedPath("/var/x", out, size), 0u);
    EXPECT_STREQ(out, "");
  }
  EXPECT_EQ(ZOR_UTIL_FixedPath(nullptr, out, sizeof out), 0u);
  EXPECT_EQ(ZOR_UTIL_FixedPath("/x", out, 0), 0u);
}

TEST_F(Files, AreGivenToKnownAccountsOnly) {
  ZOR_UTIL_WriteBufToFile(path_.c_str(), "x", 1);
  const struct passwd *self = ::getpwuid(::getuid());
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(ZOR_UTIL_ChangeFileUGid(path_.c_str(), self->pw_name), ZOR_FILE_OK);
  EXPECT_EQ(ZOR_UTIL_ChangeFileUGid(path_.c_str(), "nobody knows"), ZOR_FILE_E_NO_ACCOUNT);
  EXPECT_EQ(ZOR_UTIL_ChangeFileUGid((path_ + "x").c_str(), self->pw_name), ZOR_FILE_E_IO);
  EXPECT_EQ(ZOR_UTIL_ChangeFileUGid(nullptr, "root"), ZOR_FILE_E_ARGUMENT);
}

}  // namespace
