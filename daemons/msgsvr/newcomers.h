// Connections that may not have registered yet, and a timer for the time that they have. The timer is set once for all
// of them, since a time-out of the loop's wait would cost every turn a timer of the kernel.
#ifndef MSGSVR_NEWCOMERS_H
#define MSGSVR_NEWCOMERS_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

#include "common/unique_fd.h"

namespace zor::msgsvr {

class Newcomers {
 public:
  explicit Newcomers(std::chrono::seconds time);

  // Readable when the time of some is over; invalid, with errno, when the system gave none.
  int timer() const { return timer_.get(); }
  // A client has connected; clients are known by id.
  void Add(uint64_t id);
  // Forgets those that have gone or registered, when there are many again.
  template <typename IsNewcomer>
  void Prune(IsNewcomer isNewcomer) {
    if (newcomers_.size() < pruneAt_) return;
    std::erase_if(newcomers_, [&](const Newcomer &newcomer) { return !isNewcomer(newcomer.id); });
    pruneAt_ = 2 * newcomers_.size() + kFew;
  }
  // When the time of that client is over; nothing if it is not a newcomer.
  std::optional<std::chrono::steady_clock::time_point> DueOf(uint64_t id) const;
  // The client has connected before this server began. Call it before Add, in the order of their times.
  void Restore(uint64_t id, std::chrono::steady_clock::time_point due);
  // Call it when the timer is readable, then TakeDue until it returns none.
  void TakeTimer();
  // Removes and returns one whose time is over; sets the timer when there is none.
  std::optional<uint64_t> TakeDue();

 private:
  using Clock = std::chrono::steady_clock;
  struct Newcomer {
    uint64_t id;
    Clock::time_point due;
  };
  static constexpr size_t kFew = 32;
  void Arm();

  std::chrono::seconds time_;
  UniqueFd timer_;
  std::deque<Newcomer> newcomers_;  // oldest first
  size_t pruneAt_ = kFew;
};

}  // namespace zor::msgsvr

#endif
