#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/trace.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/capture.h"
#include "support/scripted_server.h"
#include "support/temp_root.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
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

  std::string Text() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void Fill(size_t size) const { std::ofstream(path_, std::ios::binary | std::ios::app) << std::string(size, '.'); }

  TempRoot root_;
  const std::string path_ = root_.Path("/online/log/webapp.log");
};

TEST_F(TraceFile, LinesAreAppendedToTheFile) {
  ZOR_TRACE_SetOutput(7);
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 1u);
  Print("first");
  ZOR_TRACE_SetOutputByString("stdout");
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 0u);
  ZOR_TRACE_SetOutputByString("file");
  Print("second");
  EXPECT_THAT(Text(), testing::AllOf(HasSubstr("]: first\r\n["), EndsWith("second")));
}

TEST_F(TraceFile, IsEmptiedWhenItReachesItsLimitAndGoesOnFromTheStart) {
  ZOR_TRACE_SetOutput(1);
  ZOR_TRACE_SetPackageLevel("msg", 8);
  Fill((1024 << 10) - 2);
  ZOR_TRACE_PrintInfoEx("msg", 8, "x");
  EXPECT_EQ(fs::file_size(path_), (1024u << 10) - 1);
  ZOR_TRACE_PrintInfoEx("msg", 8, "y");
  EXPECT_EQ(fs::file_size(path_), 0u);
  ZOR_TRACE_PrintInfoEx("msg", 8, "z");
  EXPECT_EQ(Text(), "z");
}

TEST_F(TraceFile, AllowsMoreThanItsFirstLimitOnly) {
  for (uint64_t ignored : {uint64_t{0}, uint64_t{1024}}) ZOR_TRACE_SetFileMaxSize(ignored);
  EXPECT_EQ(ZOR_TRACE_GetFileMaxSize(), 1024u);
  ZOR_TRACE_SetFileMaxSize(1025);
  ZOR_TRACE_SetOutput(1);
  Fill(1024 << 10);
  Print("kept");
  EXPECT_GT(fs::file_size(path_), 1024u << 10);
}

TEST_F(TraceFile, OnAFullDiskCostsTheLinesOnly) {
  fs::create_symlink("/dev/full", path_);
  ZOR_TRACE_SetOutput(1);
  for (int i = 0; i < 100; ++i) Print("lost");
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

TEST(TraceOutput, SendsEachLineAsOneDatagramAndSurvivesAClosedPort) {
  TempRoot root;  // without a trace file: the size check must leave the socket alone
  {
    const UdpReceiver receiver;
    SendTo(receiver);
    EXPECT_EQ(ZOR_TRACE_GetOutput(), 1u);
    for (const char *text : {"first", "second"}) Print(text);
    EXPECT_THAT(receiver.Next(), EndsWith("]: first"));
    EXPECT_THAT(receiver.Next(), EndsWith("]: second"));
  }
  for (int i = 0; i < 10; ++i) Print("lost");
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 1u);
}

TEST(TraceOutput, ClosesItsSocketOnce) {
  const UdpReceiver receiver;
  SendTo(receiver);
  ZOR_TRACE_SetOutput(0);
  const UdpReceiver next;  // may have the descriptor that was given back
  ZOR_TRACE_SetOutput(0);
  SendTo(next);
  Print("x");
  EXPECT_THAT(next.Next(), EndsWith("x"));
}

TEST(TraceOutput, StaysAsItIsForATextThatNamesNone) {
  const UdpReceiver receiver;
  SendTo(receiver);
  for (const char *text : {"", "word", "File", "10.0.0.1", "10.0.0.1:", "10.0.0.1:65536", "10.0.0:80", "host:80"}) {
    ZOR_TRACE_SetOutputByString(text);
    Print(text);
    EXPECT_THAT(receiver.Next(), EndsWith(text));
  }
  ZOR_TRACE_SetOutputByString(std::string(5000, ':').c_str());
  ZOR_TRACE_SetOutputByString(nullptr);
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 1u);
}

}  // namespace
