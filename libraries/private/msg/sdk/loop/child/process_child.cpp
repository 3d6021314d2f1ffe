// The child between fork and exec. Some of what it does may take locks or memory (accounts, printing), which is safe
// because the daemon has one thread: no other thread can have held a lock at the fork.
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "sdk/loop/child/process.h"

namespace zor {
namespace {

constexpr int kFailedExitCode = 127;
constexpr int kFirstClosed = 3;
constexpr int kLowestBound = 4;
constexpr int kDefaultBound = 50;

class ChildSetup {
 public:
  ChildSetup(const UvProcessOptions &options, const StartGate &gate, const ChildStreams &streams) noexcept
      : options_(options), gate_(gate), streams_(streams) {}

  [[noreturn]] void Run(int maxFd) const noexcept;

 private:
  bool Has(std::uint32_t flags) const noexcept { return (options_.flags & flags) != 0; }
  bool IsOurs(int fd) const noexcept;
  bool IsKept(int fd) const noexcept;
  void CloseDescriptors(int maxFd) const noexcept;
  void JoinGroups() const noexcept;
  bool TakeIdentity() const noexcept;
  void SetLimits() const noexcept;
  void PlaceStreams() const noexcept;
  [[noreturn]] void Fail() const noexcept;

  const UvProcessOptions &options_;
  const StartGate &gate_;
  const ChildStreams &streams_;
};

// Straight to the descriptor: what stdio has pending is the parent's.
void Say(const char *text) {
  ::dprintf(STDOUT_FILENO, "%s", text);
}

// The library's own sockets are close-on-exec, and a descriptor that is kept is meant for the program.
void KeepAcrossExec(int fd) {
  const int flags = ::fcntl(fd, F_GETFD);
  if (flags >= 0) ::fcntl(fd, F_SETFD, flags & ~FD_CLOEXEC);
}

bool ChildSetup::IsOurs(int fd) const noexcept {
  if (fd == gate_.childEnd()) return true;
  return std::any_of(streams_.begin(), streams_.end(), [fd](const UniqueFd &end) { return end.get() == fd; });
}

bool ChildSetup::IsKept(int fd) const noexcept {
  return options_.keepFd != nullptr && options_.keepFd(&options_, fd) != 0;
}

// Higher descriptors go to the program unless they are close-on-exec.
void ChildSetup::CloseDescriptors(int maxFd) const noexcept {
  const bool redirects = std::any_of(streams_.begin(), streams_.end(), [](const UniqueFd &end) { return end.valid(); });
  int bound = redirects ? maxFd + 1 : maxFd;
  if (bound < kLowestBound) bound = kDefaultBound;
  for (int fd = kFirstClosed; fd <= bound; ++fd) {
    if (IsOurs(fd)) continue;
    if (IsKept(fd)) {
      KeepAcrossExec(fd);
    } else {
      ::close(fd);
    }
  }
}

void ChildSetup::JoinGroups() const noexcept {
  if (Has(UV_PROCESS_SETUID | UV_PROCESS_SETGID) && ::setgroups(options_.groupCount, options_.groups) != 0) {
    Say("setgroups error.");
  }
  if (!Has(UV_PROCESS_SETGID)) return;
  const passwd *account = ::getpwuid(options_.uid);
  if (account != nullptr && ::initgroups(account->pw_name, options_.gid) != 0) Say("initgroups error");
}

bool ChildSetup::TakeIdentity() const noexcept {
  if (Has(UV_PROCESS_SETGID) && ::setgid(options_.gid) != 0) return false;
  if (Has(UV_PROCESS_SETEUID) && ::seteuid(options_.uid) != 0) return false;
  return !Has(UV_PROCESS_SETUID) || ::setuid(options_.uid) == 0;
}

void ChildSetup::SetLimits() const noexcept {
  if (Has(UV_PROCESS_UMASK)) ::umask(options_.umask);
  rlimit core;
  if (!Has(UV_PROCESS_NO_CORE) || ::getrlimit(RLIMIT_CORE, &core) != 0) return;
  core.rlim_cur = 0;
  ::setrlimit(RLIMIT_CORE, &core);
}

void ChildSetup::PlaceStreams() const noexcept {
  for (int i = 0; i < static_cast<int>(streams_.size()); ++i) {
    const UniqueFd &end = streams_[static_cast<std::size_t>(i)];
    if (!end.valid()) continue;
    ::dup2(end.get(), i);
    ::close(end.get());
  }
}

void ChildSetup::Fail() const noexcept {
  gate_.Wait();
  ::_exit(kFailedExitCode);
}

// execvp takes the arguments as the program will, without const.
void ChildSetup::Run(int maxFd) const noexcept {
  if (Has(UV_PROCESS_NEW_SESSION)) ::setsid();
  CloseDescriptors(maxFd);
  if (options_.cwd != nullptr && ::chdir(options_.cwd) != 0) Fail();
  JoinGroups();
  if (!TakeIdentity()) Fail();
  if (options_.env != nullptr) environ = const_cast<char **>(options_.env);
  SetLimits();
  gate_.Wait();
  PlaceStreams();
  ::execvp(options_.file, const_cast<char *const *>(options_.args));
  ::dprintf(STDOUT_FILENO, "execve process [%s] failed with %d.\n", options_.file, errno);
  ::_exit(kFailedExitCode);
}

}  // namespace

void RunChild(const UvProcessOptions &options, const UvLoop &loop, StartGate &gate,
              const ChildStreams &streams) noexcept {
  gate.LeaveToParent();
  ChildSetup(options, gate, streams).Run(loop.maxFd);
}

}  // namespace zor
