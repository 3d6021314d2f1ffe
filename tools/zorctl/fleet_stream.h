// What gateways publish as it arrives: events, log records and gaps, with what is missing or came twice.
//
// A bridge numbers what it keeps, without holes, and may repeat the latest of it after a lost connection. So a number
// that is not above the last one of its stream is a double. A hole shows a loss, but only to a reader of everything
// that is numbered.
#ifndef ZORCTL_FLEET_STREAM_H
#define ZORCTL_FLEET_STREAM_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "zorctl/fleet.h"

namespace zor::ctl {

struct StreamRecord {
  std::string gateway;
  std::string topic;  // below the gateway's
  ForeignJson document;
  bool isDouble = false;
  uint64_t missing = 0;  // numbers before this one that were not received
};

class FleetStream {
 public:
  // Subscribes to these topics, with wildcards, below each gateway. `complete`: they are all that is numbered.
  FleetStream(Fleet &fleet, const std::vector<std::string> &topics, bool complete);

  // Calls `onRecord` until it returns false, the deadline is over or the user stops the verb; false in the latter
  // cases.
  bool Run(const Deadline &deadline, const std::function<bool(const StreamRecord &)> &onRecord);

 private:
  void CheckNumber(StreamRecord &record);

  Fleet &fleet_;
  bool complete_;
  std::map<std::string, std::map<std::string, uint64_t>> last_;  // numbers, by gateway and stream
};

}  // namespace zor::ctl

#endif
