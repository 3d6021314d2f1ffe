#include "msgsvr/flows.h"

#include <algorithm>

namespace zor::msgsvr {

const Flows::Table Flows::kNone{};

void Flows::CountNew(uint64_t to, uint32_t type) {
  const auto free = std::find_if(flows_->begin(), flows_->end(), [](const Flow &flow) { return flow.count == 0; });
  if (free != flows_->end()) {
    *free = {to, type, 1};
    return;
  }
  for (Flow &flow : *flows_) --flow.count;
}

}  // namespace zor::msgsvr
