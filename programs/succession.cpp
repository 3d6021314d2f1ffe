#include "programs/succession.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <vector>

#include "programs/limits.h"
#include "programs/service_manager.h"
#include "programs/version.h"

namespace zor::daemon {
namespace {

constexpr int kTrialState = STDERR_FILENO + 1;
constexpr char kTrialOption[] = "--check-state";
// How soon a trial that has closed its standard error is asked for again: it is about to end.
constexpr std::chrono::milliseconds kEndCheck{2};
// A successor of any size opens its state and reports within the first few lines.
constexpr size_t kMostText = 512;

// The variables of this process and one more. Those that the service manager gave only to this process are left out
// for a child.
class Environment {
 public:
  Environment(std::string variable, bool forChild) : own_(std::move(variable)) {
    constexpr auto kManagers = std::to_array<std::string_view>({"NOTIFY_SOCKET=", "WATCHDOG_USEC=", "WATCHDOG_PID="});
    for (char **each = environ; *each != nullptr; ++each) {
      const bool skip = forChild && std::any_of(kManagers.begin(), kManagers.end(), [each](std::string_view name) {
                          return std::string_view(*each).starts_with(name);
                        });
      if (!skip) variables_.push_back(*each);
    }
    variables_.push_back(own_.data());
    variables_.push_back(nullptr);
  }

  char *const *get() const { return variables_.data(); }

 private:
  std::string own_;
  std::vector<char *> variables_;
};

// What posix_spawn does in the child before it executes the program.
class SpawnSetUp {
 public:
  SpawnSetUp(int state, int errors) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawnattr_init(&attributes_);
    Check(::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDWR, 0));
    Check(::posix_spawn_file_actions_adddup2(&actions_, STDIN_FILENO, STDOUT_FILENO));
    Check(::posix_spawn_file_actions_adddup2(&actions_, errors, STDERR_FILENO));
    Check(::posix_spawn_file_actions_adddup2(&actions_, state, kTrialState));
    sigset_t signals;
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::sigaddset(&signals, SIGPIPE);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  SpawnSetUp(const SpawnSetUp &) = delete;
  SpawnSetUp &operator=(const SpawnSetUp &) = delete;
  ~SpawnSetUp() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }

  // Returns an error number, also for a program that cannot be executed.
  int Spawn(const std::string &path, char *const *arguments, char *const *environment, pid_t &pid) const {
    return error_ != 0 ? error_ : ::posix_spawn(&pid, path.c_str(), &actions_, &attributes_, arguments, environment);
  }

 private:
  void Check(int error) {
    if (error_ == 0) error_ = error;
  }

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  int error_ = 0;
};

// Descriptors stay open over an exec while it exists.
class KeptOpen {
 public:
  KeptOpen(int state, std::span<const int> others) : state_(state), others_(others) { Set(0); }
  KeptOpen(const KeptOpen &) = delete;
  KeptOpen &operator=(const KeptOpen &) = delete;
  ~KeptOpen() { Set(FD_CLOEXEC); }

  bool valid() const { return valid_; }

 private:
  void Set(int flags) {
    valid_ = ::fcntl(state_, F_SETFD, flags) == 0;
    for (const int fd : others_) valid_ = ::fcntl(fd, F_SETFD, flags) == 0 && valid_;
  }

  int state_;
  std::span<const int> others_;
  bool valid_ = false;
};

std::string SystemText(const std::string &what, int error) {
  return what + ": " + std::strerror(error);
}

}  // namespace

Succession::Succession(const ProgramImage &image, ProblemLog &log)
    : image_(image), log_(log), timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (valid() && !poll_.Add(timer_.get(), EPOLLIN, nullptr)) timer_.reset();
}

Succession::~Succession() {
  EndTrial();
}

bool Succession::Begin(UniqueFd snapshot) {
  requested_ = Clock::now();
  underWay_ = true;
  TellReloading();
  try {
    text_.clear();
    text_.reserve(kMostText);
    return Spawn(snapshot);
  } catch (const std::bad_alloc &) {
    Refuse("no memory");
    return false;
  }
}

bool Succession::Spawn(const UniqueFd &snapshot) {
  std::array<int, 2> ends;
  if (!snapshot.valid() || ::pipe2(ends.data(), O_CLOEXEC) != 0) {
    Refuse(SystemText("no trial", errno));
    return false;
  }
  errors_.reset(ends[0]);
  const UniqueFd write(ends[1]);
  ::fcntl(errors_.get(), F_SETFL, O_NONBLOCK);
  std::vector<char *> arguments;
  for (char **each = image_.arguments; *each != nullptr; ++each) arguments.push_back(*each);
  std::string option = kTrialOption;
  arguments.insert(arguments.end(), {option.data(), nullptr});
  const Inheritance inheritance = {{}, Version(), requested_, requested_};
  const Environment environment(inheritance.Variable(kTrialState), true);
  const SpawnSetUp child(snapshot.get(), write.get());
  if (const int error = child.Spawn(image_.path, arguments.data(), environment.get(), trial_); error != 0) {
    trial_ = -1;
    Refuse(SystemText(image_.path, error));
    return false;
  }
  deadline_ = requested_ + limits::kTrialTime;
  SetTimer(limits::kTrialTime);
  if (poll_.Add(errors_.get(), EPOLLIN, nullptr)) return true;
  Refuse(SystemText("no trial", errno));
  return false;
}

Succession::Outcome Succession::Continue() {
  uint64_t expirations = 0;
  while (::read(timer_.get(), &expirations, sizeof expirations) > 0) {
  }
  if (trial_ < 0) return Outcome::kUnderWay;
  TakeErrors();
  if (errors_.valid() && Clock::now() < deadline_) return Outcome::kUnderWay;
  try {
    return TakeEnd();
  } catch (const std::bad_alloc &) {
    Refuse("no memory");
    return Outcome::kRefused;
  }
}

// One buffer at a time: the trial may write without an end.
void Succession::TakeErrors() {
  std::array<char, 4096> buffer;
  if (!errors_.valid()) return;
  const ssize_t count = ::read(errors_.get(), buffer.data(), buffer.size());
  if (count > 0) text_.append(buffer.data(), std::min(static_cast<size_t>(count), kMostText - text_.size()));
  if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) errors_.reset();
}

Succession::Outcome Succession::TakeEnd() {
  int status = 0;
  const pid_t ended = ::waitpid(trial_, &status, WNOHANG);
  const Clock::duration left = deadline_ - Clock::now();
  if (ended == 0 && left > Clock::duration::zero()) {
    SetTimer(std::min<Clock::duration>(left, kEndCheck));
    return Outcome::kUnderWay;
  }
  if (ended == 0) {
    Refuse(image_.path + ": its trial has not ended within " + std::to_string(limits::kTrialTime.count()) + " s");
    return Outcome::kRefused;
  }
  trial_ = -1;
  EndTrial();
  if (ended > 0 && status == 0) return Outcome::kAccepted;
  Refuse(image_.path + ": " + (ended < 0 ? std::string("its trial is lost") : ReasonOf(status)));
  return Outcome::kRefused;
}

std::string Succession::ReasonOf(int status) const {
  std::string text = text_;
  while (!text.empty() && text.back() == '\n') text.pop_back();
  std::replace(text.begin(), text.end(), '\n', ';');
  if (WIFSIGNALED(status)) text += (text.empty() ? "" : "; ") + ("signal " + std::to_string(WTERMSIG(status)));
  return text.empty() ? "exit status " + std::to_string(WEXITSTATUS(status)) : text;
}

void Succession::Execute(const UniqueFd &state, std::span<const int> kept) {
  try {
    Replace(state, kept);
  } catch (const std::bad_alloc &) {
    Refuse("no memory");
  }
}

void Succession::Replace(const UniqueFd &state, std::span<const int> kept) {
  const Inheritance inheritance = {{}, Version(), requested_, Clock::now()};
  const Environment environment(inheritance.Variable(state.get()), false);
  int error = 0;
  {
    const KeptOpen open(state.get(), kept);
    // The successor feeds it when it serves.
    Watchdog().Feed();
    if (open.valid()) ::execve(image_.path.c_str(), image_.arguments, environment.get());
    error = errno;
  }
  Refuse(SystemText(image_.path, error));
}

void Succession::Refuse(std::string_view reason) {
  EndTrial();
  underWay_ = false;
  try {
    reason_ = reason;
  } catch (const std::bad_alloc &) {
    reason_ = "no memory";
  }
  log_.Print("not handed over: %s", reason_.c_str());
  TellStatus("not handed over: %s", reason_.c_str());
  TellReady();
}

void Succession::SetTimer(Clock::duration delay) {
  const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(delay).count();
  itimerspec when = {};
  when.it_value.tv_sec = static_cast<time_t>(nanoseconds / 1'000'000'000);
  when.it_value.tv_nsec = static_cast<long>(nanoseconds % 1'000'000'000);
  ::timerfd_settime(timer_.get(), 0, &when, nullptr);
}

void Succession::EndTrial() {
  if (trial_ > 0) {
    ::kill(trial_, SIGKILL);
    ::waitpid(trial_, nullptr, 0);
  }
  trial_ = -1;
  errors_.reset();
  const itimerspec never = {};
  ::timerfd_settime(timer_.get(), 0, &never, nullptr);
}

}  // namespace zor::daemon
