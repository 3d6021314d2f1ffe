#include "zorctl/watchdog.h"

#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "zorctl/exit_code.h"

namespace zor::ctl {
namespace {

const char *lastLine = "";

void OnAlarm(int) {
  // If the line cannot be written, only the exit code can still report it.
  if (::write(STDERR_FILENO, lastLine, std::strlen(lastLine)) < 0) ::_exit(kExitFailure);
  ::_exit(kExitTimeOver);
}

void SetAlarm(Milliseconds in) {
  itimerval timer = {};
  timer.it_value.tv_sec = static_cast<time_t>(in.count() / 1000);
  timer.it_value.tv_usec = static_cast<suseconds_t>(in.count() % 1000 * 1000);
  ::setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

Watchdog::Watchdog(const Deadline &deadline, const char *line) {
  lastLine = line;
  std::signal(SIGALRM, OnAlarm);
  SetAlarm(deadline.ForServer().left());
}

Watchdog::~Watchdog() {
  SetAlarm(Milliseconds(0));
}

}  // namespace zor::ctl
