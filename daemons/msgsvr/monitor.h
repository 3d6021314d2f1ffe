// Copies of the traffic for the tools that monitor it.
//
// Monitoring must not disturb the traffic, so a copy never blocks. It is queued while the monitor's queue is less than
// half full and otherwise only counted; the next copy reports how many are missing. Copies are sent together at the end
// of a turn. Copies themselves are not copied.
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
  // Starts copying for the client, or changes its filter. False, with nothing changed, if the filter is malformed.
  bool Set(Client &client, const ZOR_CONTROL_FILTER &filter);
  // Stops copying. Returns the number of copies that the client has missed since the last one it got.
  uint32_t Remove(const Client &client);

  struct State {
    ZOR_CONTROL_FILTER filter{};
    uint32_t missed = 0;
  };
  // Nothing if the client is not a monitor.
  std::optional<State> StateOf(const Client &client) const;
  // Makes the client a monitor with that state. False, with nothing changed, if the filter is malformed.
  bool Restore(Client &client, const State &state);

  // Queues a copy for each monitor whose filter matches; the outcome is ZOR_CONTROL_DELIVERED or
  // ZOR_CONTROL_UNDELIVERED.
  void Copy(std::span<const std::byte> frame, const AppName &receiver, uint32_t outcome, uint32_t nowMs);

  // Calls `visit` with each client, which it may remove.
  template <typename Visit>
  void ForEach(Visit visit) const {
    for (size_t i = 0; i < monitors_.size();) {
      Client &client = *monitors_[i].client;
      visit(client);
      if (i < monitors_.size() && monitors_[i].client == &client) ++i;
    }
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
  // False if it does not fit.
  static bool Queue(Client &client, std::span<const std::byte> copy, uint32_t nowMs);
  static std::optional<Filter> Parse(const ZOR_CONTROL_FILTER &filter);
  std::vector<Monitor>::iterator Of(const Client &client);

  std::vector<Monitor> monitors_;
};

// Whether the server made the frame as a copy.
bool IsCopy(std::span<const std::byte> frame);

}  // namespace zor::msgsvr

#endif
