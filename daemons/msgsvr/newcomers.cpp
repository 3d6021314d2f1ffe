#include "msgsvr/newcomers.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

namespace zor::msgsvr {

Newcomers::Newcomers(std::chrono::seconds time)
    : time_(time), timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {}

void Newcomers::Add(uint64_t id) {
  newcomers_.push_back({id, Clock::now() + time_});
  if (newcomers_.size() == 1) Arm();
}

std::optional<Newcomers::Clock::time_point> Newcomers::DueOf(uint64_t id) const {
  const auto found =
      std::find_if(newcomers_.begin(), newcomers_.end(), [&](const Newcomer &newcomer) { return newcomer.id == id; });
  return found == newcomers_.end() ? std::nullopt : std::optional(found->due);
}

// Nobody has longer than a client that connects now, so that they stay in the order of their times.
void Newcomers::Restore(uint64_t id, Clock::time_point due) {
  newcomers_.push_back({id, std::min(due, Clock::now() + time_)});
  if (newcomers_.size() == 1) Arm();
}

void Newcomers::TakeTimer() {
  uint64_t expirations;
  if (::read(timer_.get(), &expirations, sizeof expirations) < 0) return;  // set anew below
}

std::optional<uint64_t> Newcomers::TakeDue() {
  if (newcomers_.empty()) return std::nullopt;
  const Newcomer first = newcomers_.front();
  if (first.due > Clock::now()) {
    Arm();
    return std::nullopt;
  }
  newcomers_.pop_front();
  return first.id;
}

void Newcomers::Arm() {
  const auto left = std::max<std::chrono::milliseconds>(
      std::chrono::ceil<std::chrono::milliseconds>(newcomers_.front().due - Clock::now()),
      std::chrono::milliseconds(1));
  itimerspec once{};
  once.it_value.tv_sec = static_cast<decltype(once.it_value.tv_sec)>(left.count() / 1000);
  once.it_value.tv_nsec = static_cast<decltype(once.it_value.tv_nsec)>(left.count() % 1000 * 1000000);
  ::timerfd_settime(timer_.get(), 0, &once, nullptr);
}

}  // namespace zor::msgsvr
