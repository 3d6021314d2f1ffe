#include "zorctl/deadline.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstring>

#include "zorctl/exit_code.h"

namespace zor::ctl {
namespace {

const char *lastWords = "";

void OnAlarm(int) {
  // Nothing can be done when even this is not written.
  if (::write(STDERR_FILENO, lastWords, std::strlen(lastWords)) < 0) ::_exit(kExitFailure);
  ::_exit(kExitTimeOver);
}

void SetAlarm(Milliseconds in) {
  itimerval timer = {};
  timer.it_value.tv_sec = static_cast<time_t>(in.count() / 1000);
  timer.it_value.tv_usec = static_cast<suseconds_t>(in.count() % 1000 * 1000);
  ::setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

Milliseconds Deadline::left() const {
  return std::max(std::chrono::ceil<Milliseconds>(end_ - Clock::now()), Milliseconds(0));
}

int Deadline::pollTimeout() const {
  return static_cast<int>(std::min<Milliseconds::rep>(left().count(), INT_MAX));
}

Deadline Deadline::Within(Milliseconds fromNow) const {
  Deadline other(fromNow);
  other.end_ = std::min(end_, other.end_);
  return other;
}

Deadline Deadline::ForServer() const {
  constexpr Milliseconds kLeast{1000};
  Deadline other(kLeast);
  other.end_ = std::max(end_, other.end_);
  return other;
}

Watchdog::Watchdog(const Deadline &deadline, const char *line) {
  lastWords = line;
  std::signal(SIGALRM, OnAlarm);
  SetAlarm(deadline.ForServer().left());
}

Watchdog::~Watchdog() {
  SetAlarm(Milliseconds(0));
}

}  // namespace zor::ctl
