// Signals as a descriptor that becomes readable, so that a server reacts between two events and never inside one.
// Making either object also ignores SIGPIPE and SIGXFSZ.
#ifndef PROGRAMS_STOP_SIGNAL_H
#define PROGRAMS_STOP_SIGNAL_H

#include <csignal>
#include <initializer_list>

#include "common/unique_fd.h"

namespace zor::daemon {

// Blocks the signals from here on, also for a program that the process executes: a pending one is not lost.
class BlockedSignals {
 public:
  BlockedSignals(std::initializer_list<int> numbers);

  // False, with errno, when the system gave no descriptor.
  bool valid() const { return fd_.valid(); }
  int fd() const { return fd_.get(); }
  // Takes a pending signal; 0 when there is none. Does not wait.
  int Take();
  // The signal mask as it was, for a child that executes another program.
  const sigset_t &before() const { return before_; }

 private:
  sigset_t before_;
  UniqueFd fd_;
};

// SIGTERM and SIGINT. Make it before anything that a signal must not interrupt.
class StopSignal {
 public:
  StopSignal();

  // False, with errno, when the system gave no descriptor.
  bool valid() const { return signals_.valid(); }
  int fd() const { return signals_.fd(); }
  // Takes a pending signal and notifies the service manager; false when there is none. Does not wait.
  bool Take() { return signals_.Take() != 0 && Notify(); }

 private:
  static bool Notify();

  BlockedSignals signals_;
};

// The same for a server that can be replaced while it runs, which SIGHUP asks for.
class ServerSignals {
 public:
  enum class Request { kNone, kHandOver, kStop };

  ServerSignals();

  bool valid() const { return signals_.valid(); }
  int fd() const { return signals_.fd(); }
  // Takes all pending signals; a stop precedes, and the service manager is notified of it. Does not wait.
  Request Take();

 private:
  BlockedSignals signals_;
};

}  // namespace zor::daemon

#endif
