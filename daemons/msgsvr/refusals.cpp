#include "msgsvr/refusals.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "programs/limits.h"

namespace zor::msgsvr {

bool Refusals::Add(uint32_t nowMs) {
  ++state_.total;
  ++state_.untold;
  state_.latestMs = nowMs;
  if (std::exchange(state_.inBurst, true)) return false;
  state_.burstTold = MayTell(nowMs);
  if (state_.burstTold) {
    state_.told = true;
    state_.toldMs = nowMs;
  }
  return state_.burstTold;
}

uint64_t Refusals::EndBurst() {
  state_.inBurst = false;
  return std::exchange(state_.burstTold, false) ? TakeUntold() : 0;
}

uint64_t Refusals::TakeUntold() {
  return std::exchange(state_.untold, 0);
}

bool Refusals::MayTell(uint32_t nowMs) const {
  return !state_.told || nowMs - state_.toldMs >= limits::msgsvr::kRefusalPauseMs;
}

EventGap::EventGap(State state) {
  if (!state.wanted) return;
  state_ = std::make_unique<State>(std::move(state));
  state_->types.reserve(limits::msgsvr::kGapTypes);  // so that counting takes no memory
}

void EventGap::Want(bool wanted) {
  State state;
  state.wanted = wanted;
  *this = EventGap(std::move(state));
}

size_t EventGap::HeldBytes() const {
  return state_ == nullptr ? 0 : sizeof *state_ + state_->types.capacity() * sizeof(ZOR_CONTROL_GAP_TYPE);
}

void EventGap::Clear() {
  state_->sinceUs = 0;
  state_->events = 0;
  state_->types.clear();
}

void EventGap::Add(uint32_t type) {
  if (state_->events++ == 0) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    state_->sinceUs = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
  }
  auto &types = state_->types;
  const auto known = std::find_if(types.begin(), types.end(), [&](const auto &entry) { return entry.type == type; });
  if (known != types.end()) {
    ++known->events;
  } else if (types.size() < limits::msgsvr::kGapTypes) {
    types.push_back({type, 1});
  }
}

std::vector<std::byte> EventGap::Body() const {
  ZOR_CONTROL_GAP gap{};
  const auto &types = state_->types;
  gap.sinceUs = state_->sinceUs;
  gap.events = state_->events;
  gap.types = static_cast<uint32_t>(types.size());
  std::vector<std::byte> body(sizeof gap + types.size() * sizeof(ZOR_CONTROL_GAP_TYPE));
  std::memcpy(body.data(), &gap, sizeof gap);
  if (!types.empty()) std::memcpy(body.data() + sizeof gap, types.data(), body.size() - sizeof gap);
  return body;
}

}  // namespace zor::msgsvr
