// Which messages a page wants to see.
#ifndef ZORWEB_TRAFFIC_FILTER_H
#define ZORWEB_TRAFFIC_FILTER_H

#include <zor/control_wire.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "programs/messages/bus_copy.h"

namespace zor::web {

struct TrafficFilter {
  std::string daemon;  // that sends or receives them; empty: any
  std::uint32_t firstType = 0;
  std::uint32_t lastType = 0;  // 0: any
  bool undelivered = false;    // only those that did not arrive

  friend bool operator==(const TrafficFilter &, const TrafficFilter &) = default;

  bool Matches(const messages::BusCopy &copy) const;
  // For the message server, which lets through what the filter matches, and perhaps more.
  ZOR_CONTROL_FILTER AsRequest() const;
};

// Nothing for a name that no daemon can have, or types that are neither a name, a number nor a range of them.
std::optional<TrafficFilter> ParseTrafficFilter(std::string_view daemon, std::string_view types);

}  // namespace zor::web

#endif
