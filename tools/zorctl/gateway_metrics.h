// What is measured of a gateway of a fleet: of its bridge, by its status, and of its bus.
#ifndef ZORCTL_GATEWAY_METRICS_H
#define ZORCTL_GATEWAY_METRICS_H

#include "programs/metrics/metrics.h"
#include "zorctl/fleet.h"

namespace zor::ctl {

// Whether it is online and well; of its bridge and, within the status, of its bus.
void AddGatewayMetrics(const Gateway &gateway, metrics::Metrics &out);

}  // namespace zor::ctl

#endif
