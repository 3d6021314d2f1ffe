#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/mlog.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "mlogapi/log_socket.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr char kReady[] = "mlogserver: listening on /var/mlog/mlogServer\n";

Child Start(std::vector<std::string> arguments = {}) {
  arguments.insert(arguments.begin(), MLOGSERVER);
  return Child::Program(arguments);
}

class MlogServer : public testing::Test {
 protected:
  // Starts the server and waits until it listens.
  void Serve(const std::vector<std::string> &options = {}) {
    server_ = std::make_unique<Child>(Start(options));
    ASSERT_TRUE(server_->WaitForOutput(kReady)) << errors_.Text();
  }
  std::string WriteSettings(const std::string &text) {
    const std::string path = root_.Path("/settings");
    std::ofstream(path) << text;
    return path;
  }
  int Stop() {
    server_->Signal(SIGTERM);
    return server_->Wait();
  }
  std::string Log() {
    std::ifstream stream(root_.Path("/online/log/mlog.log"), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  // Whether the server still replies to a well-behaved client.
  bool IsAlive() {
    char value[16] = "";
    return set_mlog_stat_info("alive", "yes") == 0 && get_mlog_stat_info("alive", value, sizeof value) == 0 &&
           std::string(value) == "yes";
  }

  TempRoot root_;
  Capture errors_{STDERR_FILENO};
  std::unique_ptr<Child> server_;
};

TEST_F(MlogServer, KeepsLinesAndSaysNothingMoreThanWhereItListens) {
  Serve();
  mlog_print("wlan", ZOR_MLOG_WARNING, "channel %d", 11);
  EXPECT_TRUE(WaitUntil([&] { return Log().ends_with("[wlan][WARN]:channel 11\n"); })) << "without any other event";
  mlog_print("cut", ZOR_MLOG_INFO, "%s", std::string(2000, 'x').c_str());
  for (int i = 0; i < 300; ++i) mlog_print("next", ZOR_MLOG_INFO, "line %d.", i);
  EXPECT_EQ(inform_mlogger_power_off(), 0);
  EXPECT_THAT(Log(), HasSubstr("[next][INFO]:line 299.\n")) << "all is saved before the reply to the notice";
  EXPECT_THAT(Log(), HasSubstr("x\n[")) << "a line that was cut ends in a newline too";
  server_->Signal(SIGSTOP);
  mlog_print("last", ZOR_MLOG_INFO, "queued");
  server_->Signal(SIGTERM);
  server_->Signal(SIGCONT);
  EXPECT_EQ(server_->Wait(), 0);
  EXPECT_THAT(Log(), testing::EndsWith(":queued\n"));
  EXPECT_FALSE(server_->WaitForOutput("never printed"));
  EXPECT_EQ(server_->output() + errors_.Text(), kReady);
  EXPECT_FALSE(fs::exists(root_.Path("/var/mlog/mlogServer")));
}

TEST_F(MlogServer, ReportsMalformedDatagramsAndDoesNotWaitForAClientThatReadsNoReplies) {
  Serve();
  const LogSocket client("hostile");
  const struct {
    uint32_t type;
    uint32_t length;
    size_t size;
    char fill;
  } cases[] = {
      {1, 4, 0, 'x'},      {1, 4, 7, 'x'},       {1, 0, 8, 'x'},     {1, 4, 13, 'x'},    {1, 0xffffffff, 8, 'x'},
      {1, 4, 12, '\0'},    {1, 2000, 2008, 'x'}, {2, 516, 524, 'n'}, {2, 515, 523, 'n'}, {2, 516, 524, '\0'},
      {4, 515, 523, '\0'}, {4, 516, 524, 'n'},   {10, 1, 9, 'x'},    {3, 0, 8, 'x'},
  };
  for (const auto &each : cases) {
    const uint32_t head[2] = {each.type, each.length};
    std::vector<char> bytes(std::max(each.size, sizeof head), each.fill);
    memcpy(bytes.data(), head, sizeof head);
    EXPECT_EQ(client.Send(bytes.data(), each.size), 0);
  }
  EXPECT_TRUE(IsAlive());
  const std::string errors = errors_.Text();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), std::ssize(cases)) << errors;
  EXPECT_THAT(errors, HasSubstr("mlogserver: malformed datagram of 2008 bytes from "));
  EXPECT_EQ(Log().size(), 64u) << "nothing but the header of a new file";

  const ZOR_MLOG_MSG msg = {ZOR_MLOG_GET_STAT, sizeof(ZOR_MLOG_STAT), "name"};
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(mlog_send_msg(client.fd(), &msg, ZOR_MLOG_SERVER_NAME), 0);
  EXPECT_TRUE(WaitUntil([&] { return IsAlive(); })) << "unread replies must not use up the room of others";
  EXPECT_THAT(errors_.Text(), HasSubstr("/var/mlog/hostile\" dropped"));
}

TEST_F(MlogServer, LeavesALivingServersSocketAloneAndTakesOverThatOfADeadOne) {
  {
    LogSocket other;
    EXPECT_EQ(Start().Wait(), 4);
    EXPECT_THAT(errors_.Text(), HasSubstr("another process is listening there\n"));
  }
  Serve();
  EXPECT_EQ(Start().Wait(), 4);
  EXPECT_THAT(errors_.Text(), HasSubstr("/var/mlog/mlogServer: another mlogserver is running\n"));
  mlog_print("t", ZOR_MLOG_INFO, "before");
  EXPECT_EQ(inform_mlogger_power_off(), 0);
  server_->Signal(SIGKILL);
  EXPECT_EQ(server_->Wait(), 128 + SIGKILL);
  EXPECT_TRUE(fs::exists(root_.Path("/var/mlog/mlogServer")));
  Serve();
  EXPECT_TRUE(IsAlive());
  EXPECT_THAT(Log(), HasSubstr(":before\n"));
}

TEST_F(MlogServer, LosesLinesButNotItsLifeWhenTheMediumIsFull) {
  fs::create_directories(root_.Path("/online/log"));
  fs::create_symlink("/dev/full", root_.Path("/online/log/mlog.log"));
  Serve();
  mlog_print("t", ZOR_MLOG_INFO, "x");
  EXPECT_TRUE(WaitUntil([&] { return errors_.Text().find("cannot write the log file") != std::string::npos; }));
  EXPECT_EQ(Stop(), 0);
}

}  // namespace
}  // namespace zor::test
