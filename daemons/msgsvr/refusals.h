// What a client that does not read has missed: messages refused because its queue was full. The log tells of them in
// bursts, and a subscriber that asks for it is told before its next event which events it has missed.
#ifndef MSGSVR_REFUSALS_H
#define MSGSVR_REFUSALS_H

#include <zor/control_wire.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace zor::msgsvr {

class Refusals {
 public:
  // True if this one begins a burst of which the log should tell.
  bool Add(uint32_t nowMs);
  // The client has read all that was queued. Returns the number of refused messages that the log should tell of now: 0
  // unless it has told of the burst's beginning.
  uint64_t EndBurst();
  // The number that the log has not told of, whatever the time.
  uint64_t TakeUntold();

  uint64_t total() const { return total_; }
  // The time of the latest.
  uint32_t latestMs() const { return latestMs_; }

 private:
  bool MayTell(uint32_t nowMs) const;

  uint64_t total_ = 0;
  uint64_t untold_ = 0;
  uint32_t latestMs_ = 0;
  std::optional<uint32_t> toldMs_;
  bool inBurst_ = false;
  bool burstTold_ = false;
};

// The events that a subscriber has missed since it was last told.
class EventGap {
 public:
  bool wanted() const { return wanted_; }
  // Starts or stops counting.
  void Want(bool wanted);

  bool empty() const { return gap_.events == 0; }
  void Add(uint32_t type);
  void Clear();
  // The body of the notice.
  std::vector<std::byte> Body() const;

 private:
  bool wanted_ = false;
  ZOR_CONTROL_GAP gap_{};
  std::vector<ZOR_CONTROL_GAP_TYPE> types_;
};

}  // namespace zor::msgsvr

#endif
