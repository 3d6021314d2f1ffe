// What a client that does not read has missed: messages refused because its queue was full. The log tells of them in
// bursts, and a subscriber that asks for it is told before its next event which events it has missed.
#ifndef MSGSVR_REFUSALS_H
#define MSGSVR_REFUSALS_H

#include <zor/control_wire.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace zor::msgsvr {

class Refusals {
 public:
  struct State {
    uint64_t total = 0;
    uint64_t untold = 0;
    uint32_t latestMs = 0;
    bool told = false;  // the log has told of a burst, at toldMs
    uint32_t toldMs = 0;
    bool inBurst = false;
    bool burstTold = false;
  };

  Refusals() = default;
  explicit Refusals(const State &state) : state_(state) {}
  const State &state() const { return state_; }

  // True if this one begins a burst of which the log should tell.
  bool Add(uint32_t nowMs);
  // The client has read all that was queued. Returns the number of refused messages that the log should tell of now: 0
  // unless it has told of the burst's beginning.
  uint64_t EndBurst();
  // The number that the log has not told of, whatever the time.
  uint64_t TakeUntold();

  uint64_t total() const { return state_.total; }
  // The time of the latest.
  uint32_t latestMs() const { return state_.latestMs; }

 private:
  bool MayTell(uint32_t nowMs) const;

  State state_;
};

// The events that a subscriber has missed since it was last told.
class EventGap {
 public:
  struct State {
    bool wanted = false;
    uint64_t sinceUs = 0;  // since 1970, UTC
    uint32_t events = 0;
    std::vector<ZOR_CONTROL_GAP_TYPE> types;
  };

  EventGap() = default;
  // Throws std::bad_alloc, like Want.
  explicit EventGap(State state);
  State state() const { return state_ == nullptr ? State() : *state_; }

  bool wanted() const { return state_ != nullptr; }
  // Starts or stops counting.
  void Want(bool wanted);
  size_t HeldBytes() const;

  // What follows has a meaning only while it is wanted.
  bool empty() const { return state_->events == 0; }
  void Add(uint32_t type);
  void Clear();
  // The body of the notice.
  std::vector<std::byte> Body() const;

 private:
  std::unique_ptr<State> state_;  // null unless it is wanted, as by few clients
};

}  // namespace zor::msgsvr

#endif
