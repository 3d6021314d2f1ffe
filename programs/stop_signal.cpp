#include "programs/stop_signal.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>

#include "programs/service_manager.h"

namespace zor::daemon {

BlockedSignals::BlockedSignals(std::initializer_list<int> numbers) {
  ::sigemptyset(&before_);
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);  // the call that exceeds a limit of file sizes fails, and says so
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int number : numbers) ::sigaddset(&signals, number);
  if (::sigprocmask(SIG_BLOCK, &signals, &before_) == 0) {
    fd_.reset(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  }
}

int BlockedSignals::Take() {
  signalfd_siginfo info;
  return ::read(fd_.get(), &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

StopSignal::StopSignal() : signals_({SIGTERM, SIGINT}) {}

bool StopSignal::Notify() {
  TellStopping();
  return true;
}

ServerSignals::ServerSignals() : signals_({SIGTERM, SIGINT, SIGHUP}) {}

ServerSignals::Request ServerSignals::Take() {
  Request request = Request::kNone;
  while (const int number = signals_.Take()) {
    request = std::max(request, number == SIGHUP ? Request::kHandOver : Request::kStop);
  }
  if (request == Request::kStop) TellStopping();
  return request;
}

}  // namespace zor::daemon
