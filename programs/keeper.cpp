#include "programs/keeper.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "programs/limits.h"
#include "programs/paths.h"

namespace zor::daemon {
namespace {

namespace bounds = limits::keeper;

constexpr int kNoticesPerTurn = 4096;  // more than its queue holds: a server must not keep it from its signals

// What does not belong to the table.
constexpr rlim_t kOwnDescriptors = 16;

// Raises the limit, and returns how many descriptors fit: each takes two for the moment in which a server is started.
size_t RoomForDescriptors() {
  rlimit limit = {};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  constexpr rlim_t kWanted = 2 * bounds::kDescriptors + kOwnDescriptors;
  const rlim_t raised = std::min(limit.rlim_max, kWanted);
  if (limit.rlim_cur < raised) {
    limit.rlim_cur = raised;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::getrlimit(RLIMIT_NOFILE, &limit);
  }
  const rlim_t room = (std::max(limit.rlim_cur, kOwnDescriptors) - kOwnDescriptors) / 2;
  return static_cast<size_t>(std::min<rlim_t>(bounds::kDescriptors, room));
}

// Of a server that was told to stop: its exit status, or that of a shell for one that a signal ended. The signals that
// stop it end it only before it waits for them.
int StatusOf(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  const int signal = WTERMSIG(status);
  return signal == SIGTERM || signal == SIGINT ? int{kExitOk} : 128 + signal;
}

// A mistake in the settings, say, ends only a server that has never served: later ones leave clients waiting, who are
// served when it is repaired.
bool IsFinal(int status, bool hasServed) {
  if (hasServed) return WIFEXITED(status) && WEXITSTATUS(status) == kExitOk;
  constexpr auto kFinal = std::to_array<int>({kExitOk, kExitUsage, kExitSettings, kExitBusy});
  return WIFEXITED(status) && std::find(kFinal.begin(), kFinal.end(), WEXITSTATUS(status)) != kFinal.end();
}

}  // namespace

Keeper::Keeper(const Program &program, const ProgramImage &image)
    : program_(program),
      image_(image),
      log_(program.name),
      signals_({SIGTERM, SIGINT, SIGHUP, SIGCHLD}),
      interval_(own_.enabled() ? own_.period() * 2 : bounds::kWatchdog) {}

int Keeper::Run() {
  if (const ExitCode code = SetUp(); code != kExitOk) return code;
  Start();
  while (!exit_) Turn();
  return *exit_;
}

ExitCode Keeper::SetUp() {
  if (!signals_.valid()) {
    log_.PrintErrno("keeper: cannot wait for signals");
    return kExitFailure;
  }
  const std::string directory = ParentOf(program_.socketPath);
  // The server, which makes what is missing below ZOR_ROOT, comes later than the keeper's own socket.
  if (!MakeDirectory(directory, program_.directoryMode != 0 ? program_.directoryMode : 0755)) {
    log_.PrintErrno("keeper: %s", directory.c_str());
    return kExitFailure;
  }
  if (const ExitCode code = notices_.Open(program_.socketPath, log_); code != kExitOk) return code;
  launch_.emplace(image_, signals_.before(), notices_.path(), interval_);
  store_.emplace(RoomForDescriptors());
  return kExitOk;
}

void Keeper::Turn() {
  std::array<pollfd, 2> entries = {{{signals_.fd(), POLLIN, 0}, {notices_.fd(), POLLIN, 0}}};
  ::poll(entries.data(), entries.size(), own_.TimeoutMs(TimeoutMs()));
  TakeNotices();
  TakeSignals();
  if (!exit_ && Clock::now() >= deadline_) HandleDeadline();
  own_.Feed();
}

void Keeper::Enter(State state, Clock::duration time) {
  state_ = state;
  deadline_ = Clock::now() + time;
}

int Keeper::TimeoutMs() const {
  if (deadline_ == Clock::time_point::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, INT32_MAX));
}

void Keeper::Start() {
  restartAsked_ = false;
  readyAt_ = Clock::time_point::max();
  server_ = launch_->Start(*store_, log_);
  if (server_ > 0) return Enter(State::kStarting, bounds::kStartTime);
  log_.PrintErrno("keeper: the server cannot be started");
  Pause();
}

// Before the next start.
void Keeper::Pause() {
  const bool steady = readyAt_ <= Clock::now() - bounds::kSteadyTime;
  failures_ = steady ? 0 : failures_ + 1;
  if (steady) return Enter(State::kPausing, Clock::duration::zero());
  constexpr int kMostDoublings = 16;
  const auto pause = bounds::kFirstPause * (1 << std::min(failures_ - 1, kMostDoublings));
  Enter(State::kPausing, std::min<Clock::duration>(pause, bounds::kMostPause));
}

void Keeper::TakeSignals() {
  while (const int signal = signals_.Take()) {
    if (signal == SIGCHLD) {
      Reap();
    } else if (signal == SIGHUP) {
      HandOver();
    } else {
      Stop(signal);
    }
  }
}

// A second signal is passed on as well: it hurries the server.
void Keeper::Stop(int signal) {
  if (!stopAsked_) TellStopping();
  stopAsked_ = true;
  if (server_ < 0) {
    exit_ = kExitOk;
    return;
  }
  ::kill(server_, signal);
  if (state_ != State::kAborting) Enter(State::kStopping, bounds::kStopTime);
}

// SIGHUP would end a server that does not wait for it yet.
void Keeper::HandOver() {
  if (state_ != State::kServing) {
    handOverAsked_ = state_ == State::kStarting;
    return;
  }
  if (program_.handsOver) {
    ::kill(server_, SIGHUP);
    return;
  }
  restartAsked_ = true;
  ::kill(server_, SIGTERM);
  Enter(State::kStopping, bounds::kStopTime);
}

// Also of other children: as the first process of a container the keeper inherits orphans.
void Keeper::Reap() {
  int status = 0;
  for (pid_t ended; (ended = ::waitpid(-1, &status, WNOHANG)) > 0;) {
    if (ended != server_) continue;
    TakeNotices();  // its last words
    server_ = -1;
    HandleEnd(status);
  }
}

void Keeper::HandleEnd(int status) {
  if (stopAsked_) {
    exit_ = StatusOf(status);
    return;
  }
  if (!restartAsked_ && IsFinal(status, hasServed_)) {
    if (WEXITSTATUS(status) != kExitOk) LogEnd(status);
    exit_ = WEXITSTATUS(status);
    return;
  }
  if (!restartAsked_) LogEnd(status);
  Pause();
}

void Keeper::LogEnd(int status) {
  if (WIFSIGNALED(status)) {
    log_.Print("keeper: the server has been ended by signal %d", WTERMSIG(status));
  } else {
    log_.Print("keeper: the server has ended with status %d", WEXITSTATUS(status));
  }
}

void Keeper::HandleDeadline() {
  switch (state_) {
    case State::kPausing:
      return Start();
    case State::kStarting:
      return Abort("is not ready in time");
    case State::kServing:
      return Abort("hangs");
    case State::kStopping:
      return Abort("does not stop");
    case State::kAborting:
      ::kill(server_, SIGKILL);
      deadline_ = Clock::time_point::max();
  }
}

void Keeper::Abort(const char *problem) {
  log_.Print("keeper: the server %s, it is killed", problem);
  ::kill(server_, SIGABRT);
  Enter(State::kAborting, bounds::kAbortTime);
}

void Keeper::TakeNotices() {
  Notice notice;
  for (int taken = 0; taken < kNoticesPerTurn && notices_.Take(notice); ++taken) {
    if (notice.sender == server_) Handle(notice);
  }
}

void Keeper::Handle(Notice &notice) {
  if (notice.Has("FDSTORE=1")) Store(notice);
  if (notice.Has("FDSTOREREMOVE=1")) store_->Remove(notice.ValueOf("FDNAME"));
  if (notice.Has("RELOADING=1")) TellReloading();
  if (notice.Has("READY=1")) HandleReady();
  if (notice.Has("WATCHDOG=1") && state_ == State::kServing) Enter(State::kServing, interval_);
  if (notice.Has("STOPPING=1") && state_ != State::kAborting) Enter(State::kStopping, bounds::kStopTime);
}

// Also after each hand-over.
void Keeper::HandleReady() {
  TellReady();
  if (state_ != State::kStarting) return;
  hasServed_ = true;
  readyAt_ = Clock::now();
  Enter(State::kServing, interval_);
  if (std::exchange(handOverAsked_, false)) HandOver();
}

void Keeper::Store(Notice &notice) {
  const std::string_view name = notice.ValueOf("FDNAME");
  if (!notice.fd.valid() || store_->Add(name.empty() ? "stored" : name, std::move(notice.fd))) return;
  log_.Print("keeper: \"%.*s\" is not stored: no room for it", static_cast<int>(name.size()), name.data());
}

}  // namespace zor::daemon
