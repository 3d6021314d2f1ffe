#include "programs/stop_signal.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

#include "programs/service_manager.h"

namespace zor::daemon {

StopSignal::StopSignal() {
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGTERM);
  ::sigaddset(&signals, SIGINT);
  if (::sigprocmask(SIG_BLOCK, &signals, nullptr) == 0) {
    fd_.reset(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  }
}

bool StopSignal::Take() {
  signalfd_siginfo info;
  if (::read(fd_.get(), &info, sizeof info) != sizeof info) return false;
  TellStopping();
  return true;
}

}  // namespace zor::daemon
