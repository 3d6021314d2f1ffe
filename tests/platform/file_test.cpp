#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
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

uint32_t Write(const std::string &path, const std::string &bytes) {
  return ZOR_UTIL_WriteBufToFile(path.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size()));
}

// The content of a file, or the status of the failure as text.
std::string Read(const std::string &path) {
  char stale = 0;
  void *buffer = &stale;
  uint32_t length = 99;
  const uint32_t status = ZOR_UTIL_ReadFileToBuf(path.c_str(), &buffer, &length);
  const std::unique_ptr<char, void (*)(void *)> owner(static_cast<char *>(buffer), std::free);
  EXPECT_EQ(owner == nullptr, status != ZOR_FILE_OK);
  if (owner == nullptr) return "status " + std::to_string(status - 0x10000) + std::string(length, '?');
  EXPECT_EQ(owner.get()[length], '\0');
  return std::string(owner.get(), length);
}

class Files : public testing::Test {
 protected:
  zor::test::TempRoot root_;
  const std::string path_ = root_.Path("/file");
};

TEST_F(Files, BytesComeBackAsTheyWereWritten) {
  for (const size_t size : {1000000u, 4096u, 1u, 0u}) {  // each replaces a longer one
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7);
    ASSERT_EQ(Write(path_, bytes), ZOR_FILE_OK);
    EXPECT_TRUE(Read(path_) == bytes) << size;
  }
  EXPECT_NE(Read("/proc/self/status").find("Threads:"), std::string::npos) << "files of the kernel announce no size";
  fs::resize_file(path_, 0x8000001);
  EXPECT_EQ(Read(path_), "status 6");
}

TEST_F(Files, WhatIsNotARegularFileIsRefusedAndStays) {
  const std::string pipe = root_.Path("/pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string &path : {pipe, root_.Path("/var"), std::string("/dev/null"), root_.Path("/missing/file")}) {
    EXPECT_EQ(Read(path), "status 7") << path;
    EXPECT_EQ(Write(path, "x"), ZOR_FILE_E_IO) << path;
  }
  EXPECT_TRUE(fs::exists(pipe) && fs::exists("/dev/null"));
  const std::string link = root_.Path("/link");
  Write(path_, "kept");
  fs::create_symlink(path_, link);
  EXPECT_EQ(Write(link, "x"), ZOR_FILE_E_IO);
  EXPECT_EQ(Read(link), "kept");
}

TEST_F(Files, AFileThatCannotBeWrittenWholeIsRemoved) {
  auto writer = zor::test::Child::Function([this] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {10000, 10000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return Write(path_, std::string(20000, 'x')) == ZOR_FILE_E_IO ? 0 : 1;
  });
  EXPECT_EQ(writer.Wait(), 0);
  EXPECT_FALSE(fs::exists(path_));
}

}  // namespace
