// Event subscriptions. A client's own subscriptions last as long as its connection. One made on behalf of another
// daemon belongs to that daemon's name: it may be made before the daemon starts and survives its restarts, until it is
// cancelled or the daemon is stopped for good.
#ifndef MSGSVR_EVENTS_H
#define MSGSVR_EVENTS_H

#include <bitset>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "msgsvr/names.h"

namespace zor::msgsvr {

// Bit 0 stands for all events.
using EventSet = std::bitset<ZOR_MSG_EVENT_LAST - ZOR_MSG_EVENT_FIRST + 1>;

// The bit of an event number, which is a message type or its offset from the first one. Nothing for any other number.
std::optional<size_t> EventBit(uint32_t eventNumber);

inline bool IsEventType(uint32_t type) {
  return type > ZOR_MSG_EVENT_FIRST && type <= ZOR_MSG_EVENT_LAST;
}

inline bool Wants(const EventSet &events, size_t bit) {
  return events[0] || events[bit];
}

// The bits that are set.
std::vector<uint16_t> BitsOf(const EventSet &events);
// Whether these are bits of events.
bool AreEventBits(const std::vector<uint16_t> &bits);

// Unsubscribing from "all events" ends every subscription.
void RemoveSubscription(EventSet &events, size_t bit);

// Subscriptions made for names.
class NamedSubscriptions {
 public:
  // False if there is no room for another name.
  bool Add(const AppName &name, size_t bit);
  void Remove(const AppName &name, size_t bit);
  void Forget(const AppName &name) { byName_.erase(name); }
  bool IsWanted(const AppName &name, size_t bit) const;
  EventSet Of(const AppName &name) const;
  const std::unordered_map<AppName, EventSet, AppNameHash> &byName() const { return byName_; }

 private:
  std::unordered_map<AppName, EventSet, AppNameHash> byName_;
};

}  // namespace zor::msgsvr

#endif
