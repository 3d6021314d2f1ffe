#include "programs/keeper_launch.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace zor::daemon {
namespace {

constexpr int kFirstPassed = STDERR_FILENO + 1;
constexpr int kNotExecuted = 127;
constexpr std::string_view kNames = "LISTEN_FDNAMES=";
constexpr size_t kMostNames = 100'000;  // the kernel takes variables of up to 128 KiB

bool IsOwnOption(std::string_view argument) {
  return argument.size() > 2 && std::string_view("--keeper").starts_with(argument);
}

bool IsOwnVariable(std::string_view variable) {
  constexpr auto kOwn =
      std::to_array<std::string_view>({"NOTIFY_SOCKET=", "WATCHDOG_USEC=", "WATCHDOG_PID=", "LISTEN_PID=",
                                       "LISTEN_FDS=", "LISTEN_FDNAMES=", "ZOR_HANDOVER=", "ZOR_JOURNAL="});
  return std::any_of(kOwn.begin(), kOwn.end(), [variable](std::string_view own) { return variable.starts_with(own); });
}

// Moves each descriptor to its number, after all of them have been moved out of the way. Whatever else has such a
// number is closed. In a fork, so that the table's owner keeps its own numbers.
bool Arrange(std::span<KeeperStore::Entry> passed) {
  const int behind = kFirstPassed + static_cast<int>(passed.size());
  for (KeeperStore::Entry &entry : passed) entry.fd.reset(::fcntl(entry.fd.get(), F_DUPFD_CLOEXEC, behind));
  int number = kFirstPassed;
  return std::all_of(passed.begin(), passed.end(),
                     [&number](const KeeperStore::Entry &entry) { return ::dup2(entry.fd.get(), number++) >= 0; });
}

}  // namespace

KeeperLaunch::KeeperLaunch(const ProgramImage &image, const sigset_t &signals, const std::string &notifyPath,
                           std::chrono::microseconds watchdog)
    : image_(image),
      notifySocket_("NOTIFY_SOCKET=" + notifyPath),
      watchdog_("WATCHDOG_USEC=" + std::to_string(watchdog.count())),
      names_(std::make_unique_for_overwrite<char[]>(kMostNames)),
      signals_(signals) {
  for (char **each = image.arguments; *each != nullptr; ++each) {
    if (each == image.arguments || !IsOwnOption(*each)) arguments_.push_back(*each);
  }
  arguments_.push_back(nullptr);
  for (char **each = environ; *each != nullptr; ++each) {
    if (!IsOwnVariable(*each)) environment_.push_back(*each);
  }
  environment_.insert(environment_.end(), {notifySocket_.data(), watchdog_.data(), watchdogPid_.data(),
                                           listenPid_.data(), listenCount_.data(), names_.get(), nullptr});
  ::getrlimit(RLIMIT_NOFILE, &descriptors_);
}

pid_t KeeperLaunch::Start(KeeperStore &store, ProblemLog &log) {
  const std::span<KeeperStore::Entry> passed = store.entries().first(WriteNames(store, log));
  const pid_t keeper = ::getpid();
  const pid_t pid = ::fork();
  if (pid == 0) Execute(passed, keeper, log);
  return pid;
}

// Returns how many descriptors can be passed.
size_t KeeperLaunch::WriteNames(KeeperStore &store, ProblemLog &log) {
  char *end = std::copy(kNames.begin(), kNames.end(), names_.get());
  size_t count = 0;
  for (const KeeperStore::Entry &entry : store.entries()) {
    const std::string_view name = entry.name();
    if (end + name.size() + 2 > names_.get() + kMostNames) {
      log.Print("%zu stored descriptors cannot be passed: their names are too long", store.entries().size() - count);
      break;
    }
    if (count > 0) *end++ = ':';
    end = std::copy(name.begin(), name.end(), end);
    ++count;
  }
  *end = '\0';
  return count;
}

// The server ends with its keeper, so that a new keeper can start it under its care. It has a process group of its own,
// so that a key on the terminal stops it through the keeper only.
void KeeperLaunch::Execute(std::span<KeeperStore::Entry> passed, pid_t keeper, ProblemLog &log) {
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != keeper) ::_exit(kNotExecuted);
  ::setpgid(0, 0);
  std::snprintf(watchdogPid_.data(), watchdogPid_.size(), "WATCHDOG_PID=%d", ::getpid());
  std::snprintf(listenPid_.data(), listenPid_.size(), "LISTEN_PID=%d", ::getpid());
  std::snprintf(listenCount_.data(), listenCount_.size(), "LISTEN_FDS=%zu", passed.size());
  if (Arrange(passed)) {
    ::setrlimit(RLIMIT_NOFILE, &descriptors_);
    ::signal(SIGPIPE, SIG_DFL);
    ::sigprocmask(SIG_SETMASK, &signals_, nullptr);
    ::execve(image_.path.c_str(), arguments_.data(), environment_.data());
  }
  log.PrintErrno("%s", image_.path.c_str());
  ::_exit(kNotExecuted);
}

}  // namespace zor::daemon
