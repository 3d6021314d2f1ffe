// Copies of the traffic for operators' tools that watch it.
//
// Watching must not change what is watched: a copy waits for nobody. It is queued while less than half of the monitor's
// queue is taken, and otherwise only counted; the next copy says how many are missing. Copies are sent together at the
// end of a turn. There are none of copies.
#ifndef MSGSVR_MONITOR_H
#define MSGSVR_MONITOR_H

#include <zor/control_wire.h>

#include <optional>
#include <span>
#include <vector>

#include "msgsvr/client.h"
#include "msgsvr/frames.h"

namespace zor::msgsvr {

class Monitors {
 public:
  bool empty() const { return monitors_.empty(); }
  bool Has(const Client &client) const;
  // Begins to copy for the client, or changes what is copied. False, with nothing changed, when the filter is none.
  bool Set(Client &client, const ZOR_CONTROL_FILTER &filter);
  // Ends that. The number of copies that the client lost since the latest one.
  uint32_t Remove(const Client &client);

  // Queues a copy for everybody who wants it; the outcome is ZOR_CONTROL_DELIVERED or ZOR_CONTROL_UNDELIVERED.
  void Copy(std::span<const std::byte> frame, const AppName &receiver, uint32_t outcome, uint32_t nowMs);

  template <typename Visit>
  void ForEach(Visit visit) const {
    for (const Monitor &monitor : monitors_) visit(*monitor.client);
  }

 private:
  struct Filter {
    AppName name;
    uint32_t directions;
    uint32_t firstType;
    uint32_t lastType;
    bool Matches(const AppName &source, const AppName &receiver, uint32_t type) const;
  };
  struct Monitor {
    Client *client;
    Filter filter;
    uint32_t missed;
  };
  static std::optional<Filter> Parse(const ZOR_CONTROL_FILTER &filter);
  std::vector<Monitor>::iterator Of(const Client &client);

  std::vector<Monitor> monitors_;
};

// Whether the server made the frame as a copy.
bool IsCopy(std::span<const std::byte> frame);

}  // namespace zor::msgsvr

#endif
