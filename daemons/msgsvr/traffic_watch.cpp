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
  bus_.NoteWallClock();
  unsettled_ = bus_.settings.deadlockSeconds > 0 && deadlocks_.Look();
  if (bus_.settings.stormRate > 0) storms_.Look(elapsedMs);
  if (LookAtFlows(elapsedMs)) unsettled_ = true;
}

// Whether there are rates, which are out of date after another period.
bool TrafficWatch::LookAtFlows(uint32_t elapsedMs) {
  bool some = false;
  for (Client &client : bus_.clients) {
    if (client.flows.empty()) continue;
    client.flows.Look(elapsedMs);
    client.Settle();
    some = some || !client.flows.empty();
  }
  return some;
}

}  // namespace zor::msgsvr
