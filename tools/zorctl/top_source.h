// Where `top` has its data from: a list at every interval, compared with the one before.
#ifndef ZORCTL_TOP_SOURCE_H
#define ZORCTL_TOP_SOURCE_H

#include <deque>
#include <optional>
#include <string>

#include "zorctl/sampler.h"
#include "zorctl/top_data.h"

namespace zor::ctl {

class TopSource {
 public:
  TopSource(Milliseconds interval, Milliseconds timeout) : sampler_(timeout), interval_(interval) {}

  // Asks when it is time, and returns what is new. Does not wait.
  std::optional<TopData> Turn();
  int fd() const { return sampler_.fd(); }
  // How long there is nothing to do but what fd() reports.
  Milliseconds left() const;
  // Why there was no list at the latest attempt.
  const std::optional<Failure> &failure() const { return failure_; }
  // The same for users, also when a reply is overdue; empty: nothing is wrong.
  std::string Trouble() const;

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<TopData> Take(Sampler::Answer answer);
  std::chrono::microseconds LeastTime(std::chrono::microseconds latest);

  Sampler sampler_;
  Milliseconds interval_;
  Clock::time_point next_{};
  std::optional<busview::Sample> before_;
  std::deque<std::chrono::microseconds> times_;
  std::optional<Failure> failure_;
};

}  // namespace zor::ctl

#endif
