#include "zorctl/sampler.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zor/control_wire.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include "zorctl/bus.h"

namespace zor::ctl {
namespace {

// Between the two processes, which are one program.
struct Head {
  int32_t code;  // kExitOk: a list follows; else a failure: its text, a NUL, its advice
  uint32_t length;
  uint64_t microseconds;
};

bool WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t count = ::write(fd, data.data(), data.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) data.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

bool Report(int fd, ExitCode code, std::string_view text, std::chrono::microseconds time) {
  const Head head = {code, static_cast<uint32_t>(text.size()), static_cast<uint64_t>(time.count())};
  std::string data(sizeof head, '\0');
  std::memcpy(data.data(), &head, sizeof head);
  return WriteAll(fd, data.append(text));
}

bool AwaitRequest(int fd) {
  char byte = 0;
  ssize_t count = -1;
  do count = ::read(fd, &byte, 1);
  while (count < 0 && errno == EINTR);
  return count == 1;
}

// The terminal's signals are for the process that draws.
void LeaveTerminal() {
  for (const int number : {SIGINT, SIGTSTP, SIGWINCH, SIGQUIT}) std::signal(number, SIG_IGN);
  const UniqueFd nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!nowhere.valid()) return;
  ::dup2(nowhere.get(), STDIN_FILENO);
  ::dup2(nowhere.get(), STDERR_FILENO);
}

void Serve(int fd, Milliseconds timeout) {
  using Clock = std::chrono::steady_clock;
  try {
    Bus bus{Deadline(timeout)};
    while (AwaitRequest(fd)) {
      const auto begin = Clock::now();
      const std::string list = bus.Control(ZOR_MSG_CONTROL_LIST, "", Deadline(timeout));
      const auto time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
      if (!Report(fd, kExitOk, list, time)) return;
    }
  } catch (const Failure &failure) {
    Report(fd, failure.code, std::string(failure.what()) + '\0' + failure.advice, {});
  } catch (const std::exception &error) {
    Report(fd, kExitFailure, std::string(error.what()) + '\0' + "this is a fault of the system or of zorctl", {});
  }
}

}  // namespace

Sampler::~Sampler() {
  End();
}

void Sampler::Start() {
  std::array<int, 2> ends = {};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  fd_.reset(ends[0]);
  const UniqueFd other(ends[1]);
  const pid_t parent = ::getpid();
  child_ = ::fork();
  if (child_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child_ > 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() == parent) {
    fd_.reset();
    LeaveTerminal();
    Serve(other.get(), timeout_);
  }
  ::_exit(0);
}

void Sampler::End() {
  fd_.reset();
  asking_ = false;
  received_.clear();
  if (child_ <= 0) return;
  ::kill(child_, SIGKILL);
  while (::waitpid(child_, nullptr, 0) < 0 && errno == EINTR) continue;
  child_ = -1;
}

void Sampler::Ask() {
  if (asking_) return;
  if (child_ <= 0) Start();
  asked_ = Clock::now();
  asking_ = true;
  // If the other process has ended, reading finds that out.
  (void)::send(fd_.get(), "?", 1, MSG_NOSIGNAL);
}

Sampler::Answer Sampler::Broken() {
  End();
  return {{}, {}, Failure(kExitTimeOver, "the message server does not accept messages", "check whether it is stopped")};
}

std::optional<Sampler::Answer> Sampler::Take() {
  if (!asking_) return std::nullopt;
  std::array<char, 65536> block = {};
  ssize_t count = 0;
  while ((count = ::recv(fd_.get(), block.data(), block.size(), MSG_DONTWAIT)) > 0) {
    received_.append(block.data(), static_cast<size_t>(count));
  }
  const bool ended = count == 0 || (errno != EAGAIN && errno != EINTR);
  Head head = {};
  if (received_.size() >= sizeof head) std::memcpy(&head, received_.data(), sizeof head);
  if (received_.size() < sizeof head || received_.size() - sizeof head < head.length) {
    return ended ? std::optional(Broken()) : std::nullopt;
  }
  std::string text = received_.substr(sizeof head, head.length);
  received_.clear();
  asking_ = false;
  if (head.code == kExitOk) return Answer{std::move(text), std::chrono::microseconds(head.microseconds), {}};
  End();
  const size_t end = text.find('\0');
  return Answer{{}, {}, Failure(static_cast<ExitCode>(head.code), text.substr(0, end), text.substr(end + 1))};
}

Milliseconds Sampler::askingFor() const {
  return asking_ ? std::chrono::duration_cast<Milliseconds>(Clock::now() - asked_) : Milliseconds(0);
}

}  // namespace zor::ctl
