// Event subscriptions. A client's own last as long as its connection. One that somebody makes for a daemon belongs to
// that daemon's name: it may come before the daemon and outlives its restarts, until it is taken back or the daemon
// has been stopped for good.
#ifndef MSGSVR_EVENTS_H
#define MSGSVR_EVENTS_H

#include <bitset>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "msgsvr/names.h"

namespace zor::msgsvr {

// Bit 0 stands for all events.
using EventSet = std::bitset<ZOR_MSG_EVENT_LAST - ZOR_MSG_EVENT_FIRST + 1>;

// The bit of an event number: a message type, or its distance from the first one. Nothing for any other number.
std::optional<size_t> EventBit(uint32_t eventNumber);

inline bool Wants(const EventSet &events, size_t bit) {
  return events[0] || events[bit];
}

// Taking back "all events" ends every subscription.
void Drop(EventSet &events, size_t bit);

// The subscriptions that were made for names.
class NamedSubscriptions {
 public:
  // False when there is no room for another name.
  bool Add(const AppName &name, size_t bit);
  void Remove(const AppName &name, size_t bit);
  void Forget(const AppName &name) { byName_.erase(name); }
  bool IsWanted(const AppName &name, size_t bit) const;
  EventSet Of(const AppName &name) const;

 private:
  std::unordered_map<AppName, EventSet, AppNameHash> byName_;
};

}  // namespace zor::msgsvr

#endif
