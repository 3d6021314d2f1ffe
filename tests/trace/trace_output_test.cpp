#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/trace.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/capture.h"
#include "support/scripted_server.h"
#include "support/temp_root.h"

namespace {

using testing::EndsWith;
using zor::test::Capture;
using zor::test::TempRoot;
using zor::test::UdpReceiver;
namespace fs = std::filesystem;

void Print(const char *text) {
  ASSERT_EQ(ZOR_TRACE_PrintInfo("a.cpp", 1, 1, "msg", ZOR_TRACE_INFO, "%s", text), 1u);
}

class TraceFile : public testing::Test {
 protected:
  TraceFile() { fs::create_directories(root_.Path("/online/log")); }

  TempRoot root_;
  const std::string path_ = root_.Path("/online/log/webapp.log");
};

TEST_F(TraceFile, TakesLinesUntilItIsEmptiedAtItsLimitWhichOnlyGrows) {
  ZOR_TRACE_SetOutput(7);
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 1u);
  ZOR_TRACE_SetPackageLevel("msg", 8);
  std::ofstream(path_) << std::string((1024 << 10) - 2, '.');
  ZOR_TRACE_PrintInfoEx("msg", 8, "x");
  ZOR_TRACE_SetOutputByString("stdout");
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 0u);
  ZOR_TRACE_SetOutputByString("file");
  EXPECT_EQ(fs::file_size(path_), (1024u << 10) - 1);
  ZOR_TRACE_PrintInfoEx("msg", 8, "y");
  EXPECT_EQ(fs::file_size(path_), 0u);
  ZOR_TRACE_PrintInfoEx("msg", 8, "z");
  EXPECT_EQ(fs::file_size(path_), 1u);
  for (uint64_t size : {0u, 1024u, 1025u, 5u}) ZOR_TRACE_SetFileMaxSize(size);
  EXPECT_EQ(ZOR_TRACE_GetFileMaxSize(), 1025u);
}

TEST_F(TraceFile, OnAFullDiskCostsTheLinesAndReportsEachOnce) {
  fs::create_symlink("/dev/full", path_);
  ZOR_TRACE_SetOutput(1);
  const std::string longerThanTheBuffer(10000, '.');
  std::string reports;
  Capture out;
  for (int i = 0; i < 100; ++i) {
    Print(i % 2 == 0 ? "lost" : longerThanTheBuffer.c_str());
    reports += "ZOR_TRACE_PrintInfo write file failed. \n";
  }
  EXPECT_EQ(out.Text(), reports);
}

TEST(TraceOutput, MakesTheDirectoryOfTheFileForItsOwnerAloneElseFallsBackToStandardOutput) {
  TempRoot root;
  {
    Capture out;
    ZOR_TRACE_SetOutput(1);
    Print("here");
    EXPECT_THAT(out.Text(),
                testing::AllOf(testing::StartsWith("mkdir for /online/log faield \r\n\r\n["), EndsWith("here")));
  }
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 0u);
  fs::create_directory(root.Path("/online"));
  ZOR_TRACE_SetOutput(1);
  EXPECT_EQ(fs::status(root.Path("/online/log")).permissions(), fs::perms(0600));
}

void SendTo(const UdpReceiver &receiver) {
  ZOR_TRACE_SetOutputByString(("127.0.0.1:" + std::to_string(receiver.port())).c_str());
}

TEST(TraceOutput, SendsEachLineAsOneDatagramUntilAnotherTextNamesAnOutput) {
  TempRoot root;  // without a trace file: the size check must leave the socket alone
  {
    const UdpReceiver receiver;
    SendTo(receiver);
    for (const char *text : {"", "word", "File", "10.0.0.1", "10.0.0.1:", "10.0.0.1:65536", "10.0.0:80", "host:80"}) {
      ZOR_TRACE_SetOutputByString(text);
      Print(text);
      EXPECT_THAT(receiver.Next(), EndsWith("]: " + std::string(text)));
    }
    ZOR_TRACE_SetOutputByString(std::string(5000, ':').c_str());
    ZOR_TRACE_SetOutputByString(nullptr);
  }
  {
    Capture out;
    for (int i = 0; i < 10; ++i) Print("lost");
    EXPECT_EQ(out.Text(), "") << "a closed port is not reported";
  }
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 1u) << "a closed port costs the lines only";
  ZOR_TRACE_SetOutput(0);
  const UdpReceiver next;  // may reuse the released descriptor
  ZOR_TRACE_SetOutput(0);
  SendTo(next);
  Print("x");
  EXPECT_THAT(next.Next(), EndsWith("x"));
}

}  // namespace
