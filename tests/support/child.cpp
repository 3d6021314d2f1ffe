#include "support/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

namespace zor::test {
namespace {

using Clock = std::chrono::steady_clock;

// The command that runs programs for another machine; empty in a native build.
constexpr const char *kEmulator[] = {ZOR_TEST_EMULATOR nullptr};

// Tries native execution first: the shell is always a native program.
[[noreturn]] void Execute(const std::vector<std::string> &arguments) {
  std::vector<char *> argv;
  for (const char *word : kEmulator) {
    if (word != nullptr) argv.push_back(const_cast<char *>(word));
  }
  const size_t own = argv.size();
  for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
  argv.push_back(nullptr);
  ::execv(argv[own], argv.data() + own);
  if (errno == ENOEXEC) ::execvp(argv[0], argv.data());
  ::_exit(127);
}

int MillisecondsUntil(Clock::time_point end) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

bool WaitUntil(const std::function<bool()> &condition, std::chrono::milliseconds deadline) {
  const auto end = Clock::now() + deadline;
  while (!condition()) {
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

Child Child::Program(const std::vector<std::string> &arguments) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(ends[1], 1);
    Execute(arguments);
  }
  ::close(ends[1]);
  return {pid, ends[0]};
}

Child Child::Function(const std::function<int()> &body) {
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int status = body();
    std::fflush(nullptr);
    ::_exit(status);
  }
  return {pid, -1};
}

Child::Child(Child &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)), fd_(std::exchange(other.fd_, -1)), output_(std::move(other.output_)) {}

Child::~Child() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  if (fd_ >= 0) ::close(fd_);
}

bool Child::WaitForOutput(const std::string &text, std::chrono::milliseconds deadline) {
  const auto end = Clock::now() + deadline;
  // Only what is new is searched: outputs may be long.
  for (size_t from = 0; output_.find(text, from) == std::string::npos;) {
    from = output_.size() < text.size() ? 0 : output_.size() - text.size() + 1;
    pollfd entry = {fd_, POLLIN, 0};
    if (::poll(&entry, 1, MillisecondsUntil(end)) <= 0) return false;
    char piece[65536];
    const ssize_t count = ::read(fd_, piece, sizeof piece);
    if (count <= 0) return false;
    output_.append(piece, static_cast<size_t>(count));
  }
  return true;
}

void Child::Signal(int number) const {
  if (pid_ > 0) ::kill(pid_, number);
}

int Child::Wait(std::chrono::milliseconds deadline) {
  int status = 0;
  if (!WaitUntil([&] { return ::waitpid(pid_, &status, WNOHANG) != 0; }, deadline)) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace zor::test
