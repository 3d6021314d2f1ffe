#include <zor/platform/process.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zor/platform/file.h>
#include <zor/platform/limits.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "common/child_signal.h"

namespace {

constexpr char kShell[] = "/bin/sh";
constexpr char kRebootCommand[] = "/sbin/reboot";
constexpr long kLongestNapMs = 20;

int64_t NowMs() {
  timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void Nap(long milliseconds) {
  const timespec duration = {0, milliseconds * 1000000};
  ::nanosleep(&duration, nullptr);
}

pid_t WaitOnce(pid_t pid, int *status, int options) {
  pid_t ended;
  do {
    ended = ::waitpid(pid, status, options);
  } while (ended < 0 && errno == EINTR);
  return ended;
}

// Waits for a child: its pid when it ended, 0 when the time was over first, -1 when it is no child. It looks again and
// again, at growing distances, because the signal of its end may go to another thread or be discarded.
pid_t WaitWithin(pid_t pid, int32_t timeLimitMs, int *status) {
  if (timeLimitMs < 0) return WaitOnce(pid, status, 0);
  const int64_t deadline = NowMs() + timeLimitMs;
  for (long nap = 1;; nap = std::min(2 * nap, kLongestNapMs)) {
    const pid_t ended = WaitOnce(pid, status, WNOHANG);
    const int64_t left = deadline - NowMs();
    if (ended != 0 || left <= 0) return ended;
    Nap(std::min(nap, static_cast<long>(left)));
  }
}

bool IsProgram(const char *path) {
  struct stat status = {};
  return ::stat(path, &status) == 0 && S_ISREG(status.st_mode) && ::access(path, X_OK) == 0;
}

// Whether the path, in two pieces, is one of a program and fits.
bool StoreProgram(const char *directory, const char *separator, const char *name, char *out, size_t size) {
  const int length = std::snprintf(out, size, "%s%s%s", directory, separator, name);
  return length >= 0 && static_cast<size_t>(length) < size && IsProgram(out);
}

bool FindProgram(const char *name, const char *const *directories, char *out, size_t size) {
  if (std::strchr(name, '/') != nullptr) return StoreProgram("", "", name, out, size);
  if (*name == '\0') return false;
  for (; *directories != nullptr; ++directories) {
    if (StoreProgram(*directories, "/", name, out, size)) return true;
  }
  return false;
}

bool RunsInsideADirectory() {
  char path[2];
  return ZOR_UTIL_FixedPath("/", path, sizeof path) != 1;
}

}  // namespace

uint32_t ZOR_UTIL_GetExeFullPath(const char *name, const char *const *directories, char *out, size_t size) {
  if (out == nullptr || size == 0) return 1;
  out[0] = '\0';
  if (name == nullptr || directories == nullptr) return 1;
  if (FindProgram(name, directories, out, size)) return 0;
  out[0] = '\0';
  return 1;
}

int32_t ZOR_UTIL_ForkProcessSys(const char *command, int32_t timeLimitMs, int32_t *status, uint32_t *timedOut) {
  if (command == nullptr) return -1;
  const zor::ChildSignalBlock block;
  const pid_t pid = ::fork();
  if (pid == 0) {
    block.Restore();
    ::execl(kShell, "sh", "-c", command, nullptr);
    ::_exit(127);
  }
  if (pid < 0) {
    std::perror("fork");
    return -1;
  }
  int raw = 0;
  const pid_t ended = WaitWithin(pid, timeLimitMs, &raw);
  if (ended == pid && status != nullptr) *status = raw;
  if (ended == 0 && timedOut != nullptr) *timedOut = 1;
  return ended < 0 ? -1 : pid;
}

int32_t ZOR_UTIL_WaitForPidEx(int32_t pid, int32_t timeLimitMs, int32_t signalNumber, int32_t graceMs) {
  if (pid <= 0) return -1;
  const zor::ChildSignalBlock block;
  int status = 0;
  pid_t ended = WaitWithin(pid, timeLimitMs, &status);
  if (ended == 0 && signalNumber != 0) {
    ::kill(pid, signalNumber);
    ended = WaitWithin(pid, std::max(graceMs, 0), &status);
    if (ended == 0) {
      ::kill(pid, SIGKILL);
      ended = WaitWithin(pid, -1, &status);
    }
  }
  return ended == pid ? status : -1;
}

uint32_t ZOR_UTIL_Reboot(uint32_t reason) {
  if (RunsInsideADirectory()) {
    std::fprintf(stderr, "reboot for reason %u refused: this system is a directory\n", reason);
    return 1;
  }
  std::fprintf(stderr, "reboot for reason %u\n", reason);
  int32_t status = -1;
  const int32_t pid = ZOR_UTIL_ForkProcessSys(kRebootCommand, ZOR_REBOOT_WAIT_MS, &status, nullptr);
  return pid > 0 && status == 0 ? 0 : 1;
}
