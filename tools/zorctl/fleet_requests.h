// One request to each of many gateways, a limited number at a time.
#ifndef ZORCTL_FLEET_REQUESTS_H
#define ZORCTL_FLEET_REQUESTS_H

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "zorctl/fleet.h"
#include "zorctl/fleet_sum.h"
#include "zorctl/progress.h"

namespace zor::ctl {

class FleetRequests {
 public:
  // The payload is published below each gateway at `path`, such as "call/cms/0x4001".
  FleetRequests(Fleet &fleet, std::string path, std::string payload);

  // Asks the gateways that are online. Passes on one answer for each gateway, in their order, however the replies
  // arrive; after Ctrl-C those that are missing count as such. Replies that no gateway was waited for are counted in
  // the sum.
  void Run(const std::vector<Gateway> &gateways, FleetSum &sum,
           const std::function<void(const FleetAnswer &)> &onAnswer);

 private:
  struct Pending {
    size_t index;
    std::string correlation;
    Deadline deadline;
  };

  void Start(const Gateway &gateway, size_t index);
  void Take(const FleetDelivery &delivery, FleetSum &sum);
  void Expire();
  void Finish(size_t index, FleetAnswer answer);
  void Abandon();

  Fleet &fleet_;
  std::string path_;
  std::string payload_;
  std::deque<Pending> pending_;             // the oldest first; some have been answered
  std::map<std::string, size_t> awaited_;   // by correlation
  std::map<size_t, FleetAnswer> finished_;  // not passed on yet
  std::vector<std::string> names_;
  size_t next_ = 0;
  Progress progress_;
};

}  // namespace zor::ctl

#endif
