#include "msgsvr/bus_record.h"

#include <algorithm>

#include "msgsvr/recorded_time.h"

namespace zor::msgsvr {

StandingBusRecord StandingBusRecordOf(const Bus &bus) {
  StandingBusRecord record;
  record.started = Nanoseconds(bus.started);
  record.lastId = bus.lastId;
  for (const auto &[name, events] : bus.subscriptions.byName()) {
    record.subscriptions.push_back({name.field(), BitsOf(events)});
  }
  for (const AppName &name : bus.barriers.posts()) record.posts.push_back(name.field());
  for (const auto &[name, messages] : bus.losses.byName()) record.losses.push_back({name.field(), messages});
  return record;
}

BusRecord BusRecordOf(const Bus &bus, const TrafficWatch &watch) {
  return {StandingBusRecordOf(bus), bus.counters, watch.state()};
}

const char *ProblemOf(const BusRecord &record) {
  const StandingBusRecord &standing = record.standing;
  const auto isNamed = [](const auto &each) { return AppName::FromField(each.name).has_value(); };
  if (!IsTime(standing.started)) return "the server's start is in the future";
  if (!std::ranges::all_of(standing.subscriptions, isNamed) || !std::ranges::all_of(standing.losses, isNamed) ||
      !std::ranges::all_of(standing.posts, [](const auto &post) { return AppName::FromField(post).has_value(); })) {
    return "a name is malformed";
  }
  for (const NamedSubscriptionRecord &each : standing.subscriptions) {
    if (!AreEventBits(each.events)) return "a subscription is to an unknown event";
  }
  return nullptr;
}

}  // namespace zor::msgsvr
