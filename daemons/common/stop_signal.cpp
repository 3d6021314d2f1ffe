#include "common/stop_signal.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

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
  return ::read(fd_.get(), &info, sizeof info) == sizeof info;
}

}  // namespace zor::daemon
