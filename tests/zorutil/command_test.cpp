#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <zor/platform/process.h>
#include <zor/zorutil.h>

#include <csignal>
#include <cstdio>
#include <iterator>
#include <string>

#include "support/capture.h"
#include "support/temp_root.h"

// Wraps the platform's runner to record and shorten the time limit.
static int32_t seenLimitMs = 0;
static bool impatient = false;

int32_t ZOR_UTIL_ForkProcessSys(const char *command, int32_t timeLimitMs, int32_t *status, uint32_t *timedOut) {
  static const auto runner = reinterpret_cast<decltype(&ZOR_UTIL_ForkProcessSys)>(::dlsym(RTLD_NEXT, __func__));
  seenLimitMs = timeLimitMs;
  return runner(command, impatient ? 1 : timeLimitMs, status, timedOut);
}

namespace zor::test {
namespace {

// The caller enforces the time limit: the command must neither survive nor become a zombie.
TEST(Command, ThatHangsIsKilledAndReaped) {
  impatient = true;
  Capture output;
  EXPECT_EQ(ZOR_UTIL_ExecCmdNoHang("exec sleep 60"), -1);
  EXPECT_EQ(seenLimitMs, 40000);
  int pid = 0;
  ASSERT_EQ(std::sscanf(output.Text().c_str(), "\r\nZOR_UTIL_ExecCmdNoHang timeout, Command; kill %d", &pid), 1);
  EXPECT_EQ(::kill(pid, 0), -1);
}

TEST(Command, ReportsItsEndOrItsStopToThePolls) {
  EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("exit 3", 0), W_EXITCODE(3, 0));
  Capture output;
  EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("echo $$; kill -STOP $$", 30), W_STOPCODE(SIGSTOP));
  const pid_t stopped = std::stoi(output.Text());
  EXPECT_EQ(::kill(stopped, SIGKILL), 0);
  EXPECT_EQ(::waitpid(stopped, nullptr, 0), stopped);
}

TEST(Command, ThatOutlivesThePollsIsSentASignalAndLeft) {
  for (const uint32_t seconds : {1u, 4295u}) {  // the number of polls wraps round
    Capture output;
    EXPECT_EQ(ZOR_UTIL_ExecCmd_ByTime("exec sleep 60", seconds), -1);
    int pid = 0;
    ASSERT_EQ(std::sscanf(output.Text().c_str(), "\r\nNotice Command; Pid = %d\r\n", &pid), 1) << output.Text();
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, SIGTERM);
  }
}

}  // namespace
}  // namespace zor::test
