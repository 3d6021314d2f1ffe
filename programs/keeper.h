// A service manager for one server, for hosts that have none (--keeper).
//
// It starts the server (the same program and arguments without --keeper), starts it again when it crashes or hangs, and
// stores the descriptors that the next one takes over: it speaks the protocol of service_manager.h from the other side,
// so that a server cannot tell it from systemd. To survive everything that the server does it does nothing else, takes
// no memory after its start, and reads nothing of what it stores.
//
// - A server that ends by itself, finds a mistake in its command line or settings, or finds its path in use is not
//   started again: the keeper ends with its status.
// - After a crash the next one is started at once; after a failing start with a pause that doubles.
// - SIGTERM and SIGINT are passed on, and the keeper ends when the server has. SIGHUP is passed on to a server that can
//   be replaced while it runs; another is stopped and started again.
// - Under a manager of its own the keeper reports the server's state to that and feeds that one's watchdog.
#ifndef PROGRAMS_KEEPER_H
#define PROGRAMS_KEEPER_H

#include <chrono>
#include <optional>

#include "programs/command_line.h"
#include "programs/keeper_launch.h"
#include "programs/keeper_notices.h"
#include "programs/keeper_store.h"
#include "programs/problem_log.h"
#include "programs/service_manager.h"
#include "programs/stop_signal.h"

namespace zor::daemon {

class Keeper {
 public:
  Keeper(const Program &program, const ProgramImage &image);

  // Serves until the server has ended for good; returns the exit status.
  int Run();

 private:
  using Clock = std::chrono::steady_clock;
  enum class State {
    kPausing,   // until the next start
    kStarting,  // until READY=1
    kServing,
    kStopping,
    kAborting,  // after SIGABRT
  };

  ExitCode SetUp();
  void Turn();
  void Enter(State state, Clock::duration time);
  int TimeoutMs() const;

  void Start();
  void Pause();
  void TakeSignals();
  void Stop(int signal);
  void HandOver();
  void Reap();
  void HandleEnd(int status);
  void LogEnd(int status);
  void HandleDeadline();
  void Abort(const char *problem);

  void TakeNotices();
  void Handle(Notice &notice);
  void HandleReady();
  void Store(Notice &notice);

  const Program &program_;
  const ProgramImage &image_;
  ProblemLog log_;
  BlockedSignals signals_;
  KeeperNotices notices_;
  Watchdog own_;
  std::chrono::microseconds interval_;
  std::optional<KeeperLaunch> launch_;
  std::optional<KeeperStore> store_;

  State state_ = State::kPausing;
  Clock::time_point deadline_ = Clock::time_point::max();
  Clock::time_point readyAt_ = Clock::time_point::max();
  pid_t server_ = -1;
  int failures_ = 0;           // starts in a row
  bool hasServed_ = false;     // one of the servers was ready
  bool stopAsked_ = false;     // the keeper ends with the server
  bool restartAsked_ = false;  // it is started again at once, whatever its status
  bool handOverAsked_ = false;
  std::optional<int> exit_;
};

}  // namespace zor::daemon

#endif
