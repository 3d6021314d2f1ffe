// The time that a verb has.
#ifndef ZORCTL_DEADLINE_H
#define ZORCTL_DEADLINE_H

#include <chrono>

namespace zor::ctl {

using Milliseconds = std::chrono::milliseconds;

class Deadline {
 public:
  explicit Deadline(Milliseconds fromNow) : end_(Clock::now() + fromNow) {}

  // The time left, never negative. Rounded up, so that a wait of this length reaches the deadline.
  Milliseconds left() const;
  bool over() const { return left().count() == 0; }
  // The same for poll, which counts in int.
  int pollTimeout() const;
  // The earlier of this deadline and the one given.
  Deadline Within(Milliseconds fromNow) const;
  // The same deadline, or a second from now if that is later: for requests to the servers themselves. They reply at
  // once, but a busy system needs more than the tenth of a second that a user may give for a daemon's reply.
  Deadline ForServer() const;

 private:
  using Clock = std::chrono::steady_clock;

  Clock::time_point end_;
};

}  // namespace zor::ctl

#endif
