#include "msgsvr/traffic_watch.h"

#include <utility>

namespace zor::msgsvr {

void TrafficWatch::Look() {
  const uint32_t elapsedMs = bus_.nowMs - std::exchange(lastMs_, bus_.nowMs);
  lookedAt_ = bus_.counters.in;
  if (bus_.settings.deadlockSeconds > 0) unsettled_ = deadlocks_.Look();
  if (bus_.settings.stormRate > 0) storms_.Look(elapsedMs);
}

}  // namespace zor::msgsvr
