// Looks at the traffic once a second for what the log should name: daemons that wait for each other in a circle, and
// storms; and makes rates of what has been counted. On a silent bus it has nothing to do and lets the server sleep.
// Otherwise a timer of its own wakes it: a time-out of the loop's wait would cost every turn a timer of the kernel.
#ifndef MSGSVR_TRAFFIC_WATCH_H
#define MSGSVR_TRAFFIC_WATCH_H

#include "common/unique_fd.h"
#include "msgsvr/deadlocks.h"
#include "msgsvr/storms.h"

namespace zor::msgsvr {

class TrafficWatch {
 public:
  explicit TrafficWatch(Bus &bus);

  struct State {
    uint32_t lastMs = 0;
    uint64_t lookedAt = 0;
    bool unsettled = false;
    std::vector<Deadlocks::Circle> circles;
    std::vector<Storms::Storm> storms;
  };
  State state() const { return {lastMs_, lookedAt_, unsettled_, deadlocks_.circles(), storms_.storms()}; }
  void Restore(State state);

  // Readable when the timer has expired; invalid, with errno, when the system gave none.
  int timer() const { return timer_.get(); }
  void TakeTimer();
  // Call it in every turn.
  void Tick() {
    if (bus_.nowMs - lastMs_ >= kPeriodMs) Look();
    if (!armed_ && NeedsLook()) Arm();
  }

 private:
  static constexpr uint32_t kPeriodMs = 1000;

  // Whether there is a reason to look again although nothing may arrive.
  bool NeedsLook() const { return unsettled_ || bus_.counters.in != lookedAt_; }
  void Look();
  bool LookAtFlows(uint32_t elapsedMs);
  void Arm();

  Bus &bus_;
  Deadlocks deadlocks_;
  Storms storms_;
  UniqueFd timer_;
  bool armed_ = false;
  uint32_t lastMs_ = 0;
  uint64_t lookedAt_ = 0;   // the bus's messages so far, at the latest look
  bool unsettled_ = false;  // a deadlock may show, or a rate end, without a further message
};

}  // namespace zor::msgsvr

#endif
