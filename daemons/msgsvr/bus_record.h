// What is written down of the bus as a whole, beside its clients (client_record.h explains records).
#ifndef MSGSVR_BUS_RECORD_H
#define MSGSVR_BUS_RECORD_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "msgsvr/bus.h"
#include "msgsvr/traffic_watch.h"

namespace zor::msgsvr {

struct NamedSubscriptionRecord {
  AppName::Field name{};
  std::vector<uint16_t> events;  // the bits that are set
};

struct LossRecord {
  AppName::Field name{};
  uint64_t messages = 0;
};

struct StandingBusRecord {
  int64_t started = 0;
  uint64_t lastId = 0;
  std::vector<NamedSubscriptionRecord> subscriptions;
  std::vector<AppName::Field> posts;  // barriers that were posted without a waiter, oldest first
  std::vector<LossRecord> losses;
};

struct BusRecord {
  StandingBusRecord standing;
  Counters counters;
  TrafficWatch::State watch;
};

StandingBusRecord StandingBusRecordOf(const Bus &bus);
BusRecord BusRecordOf(const Bus &bus, const TrafficWatch &watch);

// Why the record describes no bus; null if it does.
const char *ProblemOf(const BusRecord &record);

}  // namespace zor::msgsvr

#endif
