#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <zor/platform/process.h>
#include <zor/zorutil.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "support/capture.h"
#include "support/temp_root.h"

// Stands before the platform's runner, to see the time limit and to shorten it.
static int32_t seenLimitMs = 0;
static bool impatient = false;

int32_t ZOR_UTIL_ForkProcessSys(const char *command, int32_t timeLimitMs, int32_t *status, uint32_t *timedOut) {
  static const auto runner = reinterpret_cast<decltype(&ZOR_UTIL_ForkProcessSys)>(::dlsym(RTLD_NEXT, __func__));
  seenLimitMs = timeLimitMs;
  return runner(command, impatient ? 1 : timeLimitMs, status, timedOut);
}

namespace zor::test {
namespace {

using testing::MatchesRegex;

class Command : public testing::Test {
 protected:
  ~Command() override { g_pstExecCtx = nullptr; }
  const TempRoot root_;
};

TEST_F(Command, IsRunWithTheLimitOfTheMode) {
  const struct {
    uint32_t mode;
    int32_t limitMs;
  } cases[] = {{ZOR_EXEC_LIMITED, 40000}, {ZOR_EXEC_UNLIMITED, -1}, {2, 40000}, {4, 40000}};
  for (const auto &each : cases) {
    ZOR_EXEC_CTX context = {each.mode, nullptr};
    g_pstExecCtx = &context;
    EXPECT_EQ(ZOR_UTIL_ExecCmdNoHang("exit 3"), W_EXITCODE(3, 0));
    EXPECT_EQ(seenLimitMs, each.limitMs) << each.mode;
  }
  g_pstExecCtx = nullptr;
  EXPECT_EQ(ZOR_UTIL_ExecCmdNoHang("kill -9 $$"), SIGKILL);
  EXPECT_EQ(seenLimitMs, 40000);
  EXPECT_EQ(ZOR_UTIL_ExecCmdNoHang(nullptr), -1);
}

TEST_F(Command, IsRecordedInsteadOfRun) {
  const std::string path = root_.Path("/record");
  ZOR_EXEC_CTX context = {ZOR_EXEC_RECORD, path.c_str()};
  g_pstExecCtx = &context;
  EXPECT_EQ(ZOR_UTIL_ExecCmdNoHang("brctl show"), 0);
  EXPECT_EQ(ZOR_UTIL_ExecCmdNoHang(("touch " + root_.Path("/trace")).c_str()), 0);
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(text, "brctl show\ntouch " + root_.Path("/trace") + "\n");
  EXPECT_FALSE(std::ifstream(root_.Path("/trace")).is_open());
  for (const char *bad : {static_cast<const char *>(nullptr), "/missing/record", "/dev/full"}) {
    Capture output;
    context.recordPath = bad;
    EXPECT_EQ(ZOR_UTIL_ExecCmdNoHang("exit 3"), 0);
    EXPECT_THAT(output.Text(), MatchesRegex(".*zorutil.cpp [0-9]+ ZOR_UTIL_ExecCmdNoHang\\(\\): "
                                            "failed to record command"));
  }
}

TEST_F(Command, ThatHangsIsKilledAndReaped) {
  impatient = true;
  Capture output;
  EXPECT_EQ(ZOR_UTIL_ExecCmdNoHang("exec sleep 60"), -1);
  int pid = 0;
  ASSERT_EQ(std::sscanf(output.Text().c_str(), "\r\nZOR_UTIL_ExecCmdNoHang timeout, Command; kill %d  pid\r\n", &pid),
            1)
      << output.Text();
  EXPECT_EQ(::kill(pid, 0), -1);
}

TEST_F(Command, ReportsItsEndOrItsStopToThePolls) {
  EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime(nullptr, 1), -1);
  EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("exit 3", 0), W_EXITCODE(3, 0));
  EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("kill -9 $$", 30), SIGKILL);
  EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("/missing/program 2>&-", 30), W_EXITCODE(127, 0));
  Capture output;
  EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("echo $$; kill -STOP $$", 30), W_STOPCODE(SIGSTOP));
  const pid_t stopped = std::stoi(output.Text());
  EXPECT_EQ(::kill(stopped, SIGKILL), 0);
  EXPECT_EQ(::waitpid(stopped, nullptr, 0), stopped);
}

TEST_F(Command, ThatOutlivesThePollsIsSentASignalAndLeft) {
  const struct {
    uint32_t seconds;
    int64_t shortest;
  } cases[] = {{1, 1}, {4295, 0}};  // the number of polls wraps round
  for (const auto &each : cases) {
    Capture output;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("exec sleep 60", each.seconds), -1);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::seconds(each.shortest));
    EXPECT_LT(elapsed, std::chrono::seconds(20));
    int pid = 0;
    ASSERT_EQ(std::sscanf(output.Text().c_str(), "\r\nNotice Command; Pid = %d\r\n", &pid), 1) << output.Text();
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, SIGTERM);
  }
}

// The loop of a daemon reaps every child in its handler.
TEST_F(Command, IsNotTakenAwayByAHandlerThatReapsAll) {
  std::signal(SIGCHLD, [](int) {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) continue;
  });
  EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("sleep 0.05; exit 4", 30), W_EXITCODE(4, 0));
  EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("trap 'exit 5' CHLD; kill -CHLD $$; exit 0", 30), W_EXITCODE(5, 0))
      << "the command does not inherit the blocked signal";
}

}  // namespace
}  // namespace zor::test
