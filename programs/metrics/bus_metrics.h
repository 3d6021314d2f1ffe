// What is measured of a bus, by the message server's list.
#ifndef PROGRAMS_METRICS_BUS_METRICS_H
#define PROGRAMS_METRICS_BUS_METRICS_H

#include <nlohmann/json_fwd.hpp>

#include "programs/metrics/metrics.h"

namespace zor::metrics {

// The list is one of our own server, or a checked one. The client that asked for it is left out.
void AddBusMetrics(const nlohmann::json &list, Metrics &metrics);

}  // namespace zor::metrics

#endif
