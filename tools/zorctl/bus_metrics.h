// What is measured: of a bus, by the message server's list, and of a gateway's bridge, by its status.
#ifndef ZORCTL_BUS_METRICS_H
#define ZORCTL_BUS_METRICS_H

#include <nlohmann/json_fwd.hpp>

#include "zorctl/fleet.h"
#include "zorctl/metrics.h"

namespace zor::ctl {

// The list is one of our own server, or a checked one. This command itself is left out.
void AddBusMetrics(const nlohmann::json &list, Metrics &metrics);

// Whether it is online and well; of its bridge and, within the status, of its bus.
void AddGatewayMetrics(const Gateway &gateway, Metrics &metrics);

}  // namespace zor::ctl

#endif
