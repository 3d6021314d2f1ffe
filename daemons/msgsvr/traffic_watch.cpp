#include "msgsvr/traffic_watch.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <utility>

namespace zor::msgsvr {

TrafficWatch::TrafficWatch(Bus &bus)
    : bus_(bus), deadlocks_(bus), storms_(bus), timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {}

void TrafficWatch::Restore(State state) {
  lastMs_ = state.lastMs;
  lookedAt_ = state.lookedAt;
  unsettled_ = state.unsettled;
  deadlocks_.Restore(std::move(state.circles));
  storms_.Restore(std::move(state.storms));
}

void TrafficWatch::TakeTimer() {
  uint64_t expirations;
  if (::read(timer_.get(), &expirations, sizeof expirations) == sizeof expirations) armed_ = false;
}

void TrafficWatch::Arm() {
  itimerspec once{};
  once.it_value.tv_sec = kPeriodMs / 1000;
  armed_ = ::timerfd_settime(timer_.get(), 0, &once, nullptr) == 0;
}

void TrafficWatch::Look() {
  const uint32_t elapsedMs = bus_.nowMs - std::exchange(lastMs_, bus_.nowMs);
  lookedAt_ = bus_.counters.in;
  if (bus_.settings.deadlockSeconds > 0) unsettled_ = deadlocks_.Look();
  if (bus_.settings.stormRate > 0) storms_.Look(elapsedMs);
}

}  // namespace zor::msgsvr
