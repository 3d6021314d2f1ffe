// Shell commands: with a time limit, recorded, or polled.
#include <zor/zorutil.h>

#include <sys/wait.h>
#include <unistd.h>
#include <zor/limits.h>
#include <zor/platform/process.h>
#include <zor/systime.h>

#include <csignal>
#include <cstdio>
#include <ctime>

#include "base/file_ptr.h"
#include "common/child_signal.h"

ZOR_EXEC_CTX *g_pstExecCtx = nullptr;

namespace zor {
namespace {

constexpr std::int32_t kNoTimeLimit = -1;
constexpr std::int32_t kKilledWaitMs = 1000;
constexpr std::uint32_t kNapMicroseconds = 20;
constexpr timespec kNap = {0, 1000L * kNapMicroseconds};

bool Record(const char *command, const char *path) {
  if (path == nullptr) return false;
  FilePtr file(std::fopen(path, "a+e"));
  if (file == nullptr) return false;
  const bool written = std::fprintf(file.get(), "%s\n", command) >= 0;
  return std::fclose(file.release()) == 0 && written;
}

void Kill(std::int32_t pid) {
  ::kill(pid, SIGKILL);
  ZOR_UTIL_WaitForPidEx(pid, kKilledWaitMs, 0, 0);
  std::printf("\r\nZOR_UTIL_ExecCmdNoHang timeout, Command; kill %d  pid\r\n", pid);
}

[[noreturn]] void ExecuteShell(const char *command) {
  ::execl("/bin/sh", "sh", "-c", command, nullptr);
  ::_exit(127);
}

// Rounds of polling. A round takes longer than its sleep, so the clock bounds them as well as their number.
class Polls {
 public:
  explicit Polls(std::uint32_t seconds) noexcept : seconds_(seconds), left_(seconds * 1000000 / kNapMicroseconds) {
    ZOR_UTIL_GetSysTime(&start_);
  }

  // Sleeps until the next round; false when that was the last one.
  bool Next() noexcept {
    ::nanosleep(&kNap, nullptr);
    return left_-- != 0 && !IsTimeOver();
  }

 private:
  bool IsTimeOver() const noexcept {
    ZOR_SYS_TIME now = {};
    ZOR_UTIL_GetSysTime(&now);
    const std::uint32_t elapsed = now.seconds - start_.seconds;
    return elapsed > seconds_ || (elapsed == seconds_ && now.microseconds >= start_.microseconds);
  }

  const std::uint32_t seconds_;
  std::uint32_t left_;
  ZOR_SYS_TIME start_ = {};
};

}  // namespace
}  // namespace zor

int32_t ZOR_UTIL_ExecCmdNoHang(const char *command) {
  if (command == nullptr) return -1;
  const uint32_t mode = g_pstExecCtx == nullptr ? ZOR_EXEC_LIMITED : g_pstExecCtx->mode;
  if (mode == ZOR_EXEC_RECORD) {
    if (!zor::Record(command, g_pstExecCtx->recordPath)) {
      std::printf("%s %d %s(): failed to record command", __FILE__, __LINE__, __func__);
    }
    return 0;
  }
  int32_t status = 0;
  uint32_t timedOut = 0;
  const int32_t limitMs = mode == ZOR_EXEC_UNLIMITED ? zor::kNoTimeLimit : ZOR_EXEC_LIMIT_MS;
  const int32_t pid = ZOR_UTIL_ForkProcessSys(command, limitMs, &status, &timedOut);
  if (pid < 1) return pid;
  if (timedOut != 1) return status;
  zor::Kill(pid);
  return -1;
}

int32_t ZOR_UTIL_ExecCmd_ByTime(const char *command, uint32_t seconds) {
  if (command == nullptr) return -1;
  const zor::ChildSignalBlock block;
  const pid_t pid = ::fork();
  if (pid == 0) {
    block.Restore();
    zor::ExecuteShell(command);
  }
  if (pid < 0) return -1;
  zor::Polls polls(seconds == 0 ? ZOR_EXEC_DEFAULT_SECONDS : seconds);
  do {
    int status = 0;
    const pid_t changed = ::waitpid(pid, &status, WNOHANG | WUNTRACED);
    if (changed != 0) return changed < 0 ? -1 : status;
  } while (polls.Next());
  // Not waited for: the command may take as long as it likes to end.
  ::kill(pid, SIGTERM);
  std::printf("\r\nNotice Command; Pid = %d\r\n", pid);
  return -1;
}
