// The time that a verb has, and how a text on the command line becomes one.
#ifndef ZORCTL_DEADLINE_H
#define ZORCTL_DEADLINE_H

#include <chrono>

namespace zor::ctl {

using Milliseconds = std::chrono::milliseconds;

constexpr double kMaxTimeoutSeconds = 86400 * 365.0;

class Deadline {
 public:
  explicit Deadline(Milliseconds fromNow) : end_(Clock::now() + fromNow) {}

  // What is left, never negative. Rounded up, so that a wait of this length reaches the deadline.
  Milliseconds left() const;
  bool over() const { return left().count() == 0; }
  // The same for poll, which counts in int.
  int pollTimeout() const;
  // Whichever comes first.
  Deadline Within(Milliseconds fromNow) const;
  // The same, or a second from now when that is later: for what the servers themselves do, which is to be had at once,
  // but not in a tenth of a second from a busy system. A user who gives so little means what he waits for.
  Deadline ForServer() const;

 private:
  using Clock = std::chrono::steady_clock;

  Clock::time_point end_;
};

// Ends the process with kExitTimeOver and a line on standard error when a call of the library blocks beyond a deadline:
// some of them wait without a limit, most often for the message server. One at a time.
class Watchdog {
 public:
  static constexpr char kServerStuck[] =
      "zorctl: the message server does not take messages; look whether it is stopped, or give more --timeout\n";

  explicit Watchdog(const Deadline &deadline, const char *line = kServerStuck);
  ~Watchdog();
  Watchdog(const Watchdog &) = delete;
  Watchdog &operator=(const Watchdog &) = delete;
};

}  // namespace zor::ctl

#endif
