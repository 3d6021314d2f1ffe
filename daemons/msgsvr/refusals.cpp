#include "msgsvr/refusals.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "programs/limits.h"

namespace zor::msgsvr {

bool Refusals::Add(uint32_t nowMs) {
  ++total_;
  ++untold_;
  latestMs_ = nowMs;
  if (std::exchange(inBurst_, true)) return false;
  burstTold_ = MayTell(nowMs);
  if (burstTold_) toldMs_ = nowMs;
  return burstTold_;
}

uint64_t Refusals::EndBurst() {
  inBurst_ = false;
  return std::exchange(burstTold_, false) ? TakeUntold() : 0;
}

uint64_t Refusals::TakeUntold() {
  return std::exchange(untold_, 0);
}

bool Refusals::MayTell(uint32_t nowMs) const {
  return !toldMs_ || nowMs - *toldMs_ >= limits::msgsvr::kRefusalPauseMs;
}

void EventGap::Want(bool wanted) {
  wanted_ = wanted;
  Clear();
}

void EventGap::Clear() {
  gap_ = {};
  types_ = {};
}

void EventGap::Add(uint32_t type) {
  if (gap_.events++ == 0) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    gap_.sinceUs = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
  }
  const auto known = std::find_if(types_.begin(), types_.end(), [&](const auto &entry) { return entry.type == type; });
  if (known != types_.end()) {
    ++known->events;
  } else if (types_.size() < limits::msgsvr::kGapTypes) {
    types_.push_back({type, 1});
  }
}

std::vector<std::byte> EventGap::Body() const {
  ZOR_CONTROL_GAP gap = gap_;
  gap.types = static_cast<uint32_t>(types_.size());
  std::vector<std::byte> body(sizeof gap + types_.size() * sizeof(ZOR_CONTROL_GAP_TYPE));
  std::memcpy(body.data(), &gap, sizeof gap);
  if (!types_.empty()) std::memcpy(body.data() + sizeof gap, types_.data(), body.size() - sizeof gap);
  return body;
}

}  // namespace zor::msgsvr
