// SIGTERM and SIGINT as a descriptor that becomes readable, so that a server stops between two events and never inside
// one. Making it also ignores SIGPIPE.
#ifndef PROGRAMS_STOP_SIGNAL_H
#define PROGRAMS_STOP_SIGNAL_H

#include "common/unique_fd.h"

namespace zor::daemon {

class StopSignal {
 public:
  // Blocks both signals from here on: make it before anything that a signal must not interrupt.
  StopSignal();

  // False, with errno, when the system gave no descriptor.
  bool valid() const { return fd_.valid(); }
  int fd() const { return fd_.get(); }
  // Takes a pending signal and notifies the service manager; false when there is none. Does not wait.
  bool Take();

 private:
  UniqueFd fd_;
};

}  // namespace zor::daemon

#endif
