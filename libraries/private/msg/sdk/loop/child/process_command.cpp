// Command lines that run under the account that is named like their program.
#include <pwd.h>
#include <unistd.h>
#include <zor/limits.h>
#include <zor/platform/process.h>
#include <zor/status.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "common/child_signal.h"
#include "sdk/loop/child/process.h"
#include "sdk/loop/core/loop.h"

const char *g_apcBinSearchPath[6] = {"/bin", "/sbin", "/usr/bin", "/system/bin", "/app/bin", nullptr};

namespace zor {
namespace {

struct ArgsDeleter {
  void operator()(char **args) const noexcept { ZOR_UTIL_FreeArgs(args); }
};
using Args = std::unique_ptr<char *[], ArgsDeleter>;

// The arguments of a command line; null when there are none.
Args Split(const char *command) {
  if (command == nullptr) return nullptr;
  char line[ZOR_EXEC_ACCOUNT_COMMAND_SIZE];
  std::snprintf(line, sizeof line, "%s", command);
  const std::size_t length = std::strlen(line);
  if (length > 0 && line[length - 1] == '&') line[length - 1] = '\0';
  std::uint32_t count = 0;
  Args args(ZOR_UTIL_ParseArgs(line, &count));
  return count == 0 ? nullptr : std::move(args);
}

// A program with what it takes to run it.
class Program {
 public:
  // False when it is not found.
  bool Find(const char *const *args) noexcept {
    if (args == nullptr || ZOR_UTIL_GetExeFullPath(args[0], g_apcBinSearchPath, path_, sizeof path_) != 0) return false;
    options_.file = path_;
    options_.args = args;
    if (const passwd *account = ::getpwnam(args[0]); account != nullptr) {
      options_.uid = account->pw_uid;
      options_.gid = account->pw_gid;
      options_.flags = UV_PROCESS_SETUID | UV_PROCESS_SETGID;
    }
    return true;
  }
  const UvProcessOptions &options() const noexcept { return options_; }

 private:
  char path_[256];
  UvProcessOptions options_ = {};
};

}  // namespace
}  // namespace zor

int32_t ZOR_UTIL_ExecCmdWithPermissions(const char *command) {
  const zor::Args args = zor::Split(command);
  zor::Program program;
  UvProcess *process = nullptr;
  if (!program.Find(args.get()) || ZOR_UV_ProcessSpawn(nullptr, &process, &program.options()) != ZOR_OK) return -1;
  return process->pid;
}

int32_t ZOR_UTIL_ExecCmdWithPermissionsMorePara(const char *const *args, int32_t timeLimitMs, int32_t signalNumber,
                                                int32_t graceMs) {
  zor::Program program;
  zor::StartGate gate;
  if (!program.Find(args) || !gate.Make()) return -1;
  const zor::ChildSignalBlock block;
  const pid_t pid = ::fork();
  if (pid < 0) return static_cast<int32_t>(ZOR_E_IO);
  if (pid == 0) {
    block.Restore();
    zor::RunChild(program.options(), *ZOR_UV_LoopGetDefault(), gate, {});
  }
  gate.LeaveToChild();
  gate.Open();
  return ZOR_UTIL_WaitForPidEx(pid, timeLimitMs, signalNumber, graceMs);
}

int32_t ZOR_UTIL_ExecCmdWithPermissionsFullEx(const char *command, int32_t timeLimitMs, int32_t signalNumber,
                                              int32_t graceMs) {
  const zor::Args args = zor::Split(command);
  if (args == nullptr) return -1;
  return ZOR_UTIL_ExecCmdWithPermissionsMorePara(args.get(), timeLimitMs, signalNumber, graceMs);
}
