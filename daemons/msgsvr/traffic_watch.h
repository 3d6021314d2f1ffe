// Looks at the traffic once a second for what the log should name: daemons that wait for each other in a circle, and
// storms. On a silent bus it has nothing to do and lets the server sleep.
#ifndef MSGSVR_TRAFFIC_WATCH_H
#define MSGSVR_TRAFFIC_WATCH_H

#include "msgsvr/deadlocks.h"
#include "msgsvr/storms.h"

namespace zor::msgsvr {

class TrafficWatch {
 public:
  explicit TrafficWatch(Bus &bus) : bus_(bus), deadlocks_(bus), storms_(bus) {}

  // Whether there is a reason to wake up within a second although nothing arrives.
  bool wantsTick() const { return bus_.settings.deadlockSeconds > 0 && (unsettled_ || bus_.counters.in != lookedAt_); }
  // Call it in every turn.
  void Tick() {
    if (bus_.nowMs - lastMs_ >= kPeriodMs) Look();
  }

 private:
  static constexpr uint32_t kPeriodMs = 1000;

  void Look();

  Bus &bus_;
  Deadlocks deadlocks_;
  Storms storms_;
  uint32_t lastMs_ = 0;
  uint64_t lookedAt_ = 0;   // the bus's messages so far, at the latest look
  bool unsettled_ = false;  // a deadlock may show without a further message
};

}  // namespace zor::msgsvr

#endif
