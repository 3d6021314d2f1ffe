#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/mlog.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <span>
#include <string>
#include <vector>

#include "mlogapi/log_socket.h"
#include "mlogserver/stat_table.h"
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
  std::string Log() { return ContentOf(root_.Path("/online/log/mlog.log")); }
  // Whether the server still replies to a well-behaved client.
  bool IsAlive() {
    char value[16] = "";
    return set_mlog_stat_info("alive", "yes") == 0 && get_mlog_stat_info("alive", value, sizeof value) == 0 &&
           std::string(value) == "yes";
  }
  // Waits until the server has handled what was sent to it before.
  void Settle() {
    EXPECT_TRUE(WaitUntil([this] { return IsAlive(); }));
  }

  TempRoot root_;
  Capture errors_{STDERR_FILENO};
  std::unique_ptr<Child> server_;
};

// The process that a keeper started.
pid_t KeptBy(const Child &keeper) {
  const std::string pid = std::to_string(keeper.pid());
  pid_t child = -1;
  std::ifstream("/proc/" + pid + "/task/" + pid + "/children") >> child;
  return child;
}

TEST_F(MlogServer, FindsTheLinesThatWaitedForItAfterACrashAndARestart) {
  Serve({"--keeper"});
  for (const int signal : {SIGKILL, SIGTERM}) {
    const pid_t before = KeptBy(*server_);
    ASSERT_GT(before, 0);
    ::kill(before, SIGSTOP);
    const std::string line = "while nothing serves " + std::to_string(signal);
    mlog_print("waits", ZOR_MLOG_INFO, "%s", line.c_str());
    if (signal == SIGKILL) {
      ::kill(before, SIGKILL);
    } else {
      server_->Signal(SIGHUP);
      ::kill(before, SIGCONT);
    }
    EXPECT_TRUE(WaitUntil([&] { return Log().find(line) != std::string::npos; }));
    EXPECT_TRUE(WaitUntil([&] { return KeptBy(*server_) != before && IsAlive(); }));
  }
  EXPECT_EQ(Stop(), 0);
}

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
  for (const size_t from : {size_t{0}, std::size(cases) / 2}) {
    Child sender = Child::Function([&] {  // each process has its share of the log's lines
      for (const auto &each : std::span(cases).subspan(from, std::size(cases) / 2)) {
        const uint32_t head[2] = {each.type, each.length};
        std::vector<char> bytes(std::max(each.size, sizeof head), each.fill);
        memcpy(bytes.data(), head, sizeof head);
        if (client.Send(bytes.data(), each.size) != 0) return 1;
      }
      return 0;
    });
    EXPECT_EQ(sender.Wait(), 0);
  }
  Settle();
  const std::string errors = errors_.Text();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), std::ssize(cases)) << errors;
  EXPECT_THAT(errors, HasSubstr("mlogserver: malformed datagram of 2008 bytes from "));
  EXPECT_EQ(Log().size(), 64u) << "nothing but the header of a new file";

  const ZOR_MLOG_MSG msg = {ZOR_MLOG_GET_STAT, sizeof(ZOR_MLOG_STAT), "name"};
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(mlog_send_msg(client.fd(), &msg, ZOR_MLOG_SERVER_NAME), 0);
  EXPECT_TRUE(WaitUntil([&] { return IsAlive(); })) << "unread replies must not use up the room of others";
  EXPECT_THAT(errors_.Text(), HasSubstr("/var/mlog/hostile\" dropped"));
}

std::string OwnUid() {
  return "uid=" + std::to_string(::getuid());
}

TEST_F(MlogServer, WritesEachDatagramAsOneLineThatBeginsWithItsSender) {
  Serve();
  mlog_print("t", ZOR_MLOG_INFO, "a\n[00000000001][web][FATL]:b\x1b[2J\t\xc2\x9b\x7f \xc3\xa4\\n");
  EXPECT_EQ(inform_mlogger_power_off(), 0);
  Settle();
  const std::string log = Log().substr(ZOR_MLOG_FILE_HEADER_SIZE);
  EXPECT_THAT(log, testing::StartsWith("[pid=" + std::to_string(::getpid()) + " " + OwnUid() + "][0"));
  EXPECT_THAT(log, testing::EndsWith(R"(][t][INFO]:a\n[00000000001][web][FATL]:b\x1b[2J\t\xc2\x9b\x7f )"
                                     "\xc3\xa4\\n\n"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
  Stop();
  Serve({"--settings", WriteSettings("sender_in_line = no\n")});
  mlog_print("t", ZOR_MLOG_INFO, "plain");
  EXPECT_EQ(inform_mlogger_power_off(), 0);
  Settle();
  EXPECT_THAT(Log(), testing::ContainsRegex("\n\\[[0-9]{11}]\\[t]\\[INFO]:plain\n"));
}

TEST_F(MlogServer, LimitsTheLinesAndStatisticsOfAUserAndReportsWhatItLeavesOut) {
  Serve({"--settings", WriteSettings("user_lines = 3\nuser_rate = 1\nmax_statistics = 3\nuser_statistics = 2\n")});
  constexpr int kSent = 20;
  for (int i = 0; i < kSent; ++i) mlog_print("t", ZOR_MLOG_INFO, "line");
  // Each line is either there or counted, however long this takes.
  const std::regex leftOut("\\[mlogserver]\\[WARN]:([0-9]+) lines of " + OwnUid() + " left out\n");
  EXPECT_TRUE(WaitUntil([&] {
    const std::string log = Log();
    const std::regex line(":line\n");
    auto accounted = std::distance(std::sregex_iterator(log.begin(), log.end(), line), {});
    for (std::sregex_iterator at(log.begin(), log.end(), leftOut), end; at != end; ++at)
      accounted += std::stoi((*at)[1]);
    return accounted == kSent;
  })) << Log();
  EXPECT_THAT(Log(), testing::ContainsRegex("lines of .* left out"));

  for (const char *name : {"first", "second", "third", "first"}) EXPECT_EQ(set_mlog_stat_info(name, name), 0);
  char value[16] = "";
  EXPECT_EQ(get_mlog_stat_info("third", value, sizeof value), 0);
  EXPECT_STREQ(value, "");
  EXPECT_THAT(errors_.Text(), HasSubstr(OwnUid() + ", refused: too many statistics of this user\n"));

  mlogserver::StatTable table(3, 2);
  constexpr uid_t kFirst = 1001, kSecond = 1002, kRoot = 0;
  EXPECT_EQ(table.Set("a", "1", kFirst, false), nullptr);
  EXPECT_EQ(table.Set("b", "1", kFirst, false), nullptr);
  EXPECT_STREQ(table.Set("a", "2", kSecond, false), "it belongs to another user");
  EXPECT_EQ(table.Set("a", "3", kRoot, true), nullptr);
  EXPECT_STREQ(table.Set("a", "4", kFirst, false), "it belongs to another user") << "root has taken it over";
  EXPECT_EQ(table.Set("c", "1", kFirst, false), nullptr) << "so there is room in the share again";
  EXPECT_STREQ(table.Set("d", "1", kSecond, false), "too many statistics");
  EXPECT_EQ(table.Get("a") + table.Get("b") + table.Get("c") + table.Get("d"), "311");
}

TEST_F(MlogServer, RepliesNeitherThroughALinkNorToASocketOfAnotherUser) {
  Serve();
  LogSocket victim("victim");
  const LogSocket client("client");
  const std::string path = root_.Path("/var/mlog/client");
  const ZOR_MLOG_MSG request = {ZOR_MLOG_GET_STAT, sizeof(ZOR_MLOG_STAT), "name"};
  fs::rename(path, path + ".own");
  const auto ask = [&](const char *refusal) {
    EXPECT_EQ(mlog_send_msg(client.fd(), &request, ZOR_MLOG_SERVER_NAME), 0);
    Settle();
    EXPECT_THAT(errors_.Text(), testing::EndsWith(refusal)) << "the server handles requests in order";
    EXPECT_EQ(::recv(victim.fd(), nullptr, 0, MSG_DONTWAIT), -1) << "nothing for the victim";
  };
  fs::create_symlink("victim", path);
  ask("it is a link\n");
  fs::remove(path);
  std::ofstream(path) << "text";
  ask("it is not a socket\n");
  fs::remove(path);
  if (::geteuid() == 0) {  // only root can make the socket somebody else's
    fs::create_hard_link(root_.Path("/var/mlog/victim"), path);
    ASSERT_EQ(::chown(path.c_str(), 12345, static_cast<gid_t>(-1)), 0);
    ask("it belongs to another user\n");
  }
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
  Settle();
  server_->Signal(SIGKILL);
  EXPECT_EQ(server_->Wait(), 128 + SIGKILL);
  EXPECT_TRUE(fs::exists(root_.Path("/var/mlog/mlogServer")));
  Serve();
  Settle();
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
