#include "msgsvr/events.h"

#include <algorithm>

#include "programs/limits.h"

namespace zor::msgsvr {

std::optional<size_t> EventBit(uint32_t eventNumber) {
  const uint32_t bit = eventNumber >= ZOR_MSG_EVENT_FIRST ? eventNumber - ZOR_MSG_EVENT_FIRST : eventNumber;
  if (bit >= EventSet{}.size()) return std::nullopt;
  return bit;
}

std::vector<uint16_t> BitsOf(const EventSet &events) {
  std::vector<uint16_t> bits;
  for (size_t bit = 0; bit < events.size(); ++bit) {
    if (events[bit]) bits.push_back(static_cast<uint16_t>(bit));
  }
  return bits;
}

bool AreEventBits(const std::vector<uint16_t> &bits) {
  return std::ranges::all_of(bits, [](uint16_t bit) { return bit < EventSet().size(); });
}

void RemoveSubscription(EventSet &events, size_t bit) {
  if (bit == 0) {
    events.reset();
  } else {
    events.reset(bit);
  }
}

bool NamedSubscriptions::Add(const AppName &name, size_t bit) {
  if (byName_.size() >= limits::msgsvr::kSubscribedNames && !byName_.contains(name)) return false;
  byName_[name].set(bit);
  return true;
}

void NamedSubscriptions::Remove(const AppName &name, size_t bit) {
  const auto entry = byName_.find(name);
  if (entry == byName_.end()) return;
  RemoveSubscription(entry->second, bit);
  if (entry->second.none()) byName_.erase(entry);
}

bool NamedSubscriptions::IsWanted(const AppName &name, size_t bit) const {
  const auto entry = byName_.find(name);
  return entry != byName_.end() && Wants(entry->second, bit);
}

EventSet NamedSubscriptions::Of(const AppName &name) const {
  const auto entry = byName_.find(name);
  return entry == byName_.end() ? EventSet() : entry->second;
}

}  // namespace zor::msgsvr
