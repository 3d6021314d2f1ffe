#include "msgsvr/flows.h"

#include <algorithm>

namespace zor::msgsvr {

const Flows::State Flows::kNone{};

void Flows::CountNew(uint64_t to, uint32_t type) {
  Table &counts = state_->counts;
  const auto free = std::find_if(counts.begin(), counts.end(), [](const Flow &flow) { return flow.count == 0; });
  if (free != counts.end()) {
    *free = {to, type, 1};
    return;
  }
  for (Flow &flow : counts) --flow.count;
}

// Rounds up: a flow in use has a rate.
void Flows::Look(uint32_t elapsedMs) {
  if (state_ == nullptr) return;
  Table rates{};
  auto rate = rates.begin();
  for (const Flow &flow : state_->counts) {
    if (flow.count == 0) continue;
    const uint64_t perSecond = (uint64_t{flow.count} * 1000 + elapsedMs - 1) / elapsedMs;
    *rate++ = {flow.to, flow.type, static_cast<uint32_t>(std::min<uint64_t>(perSecond, UINT32_MAX))};
  }
  if (rate == rates.begin()) return state_.reset();
  *state_ = {{}, rates};
}

}  // namespace zor::msgsvr
