// Handler times of the daemons that offer them.
#ifndef PROGRAMS_METRICS_HANDLER_METRICS_H
#define PROGRAMS_METRICS_HANDLER_METRICS_H

#include <nlohmann/json_fwd.hpp>

#include "programs/metrics/metrics.h"

namespace zor::metrics {

// Of the daemons in the message server's list that run on this machine. The list is one of our own server.
void AddHandlerMetrics(const nlohmann::json &list, Metrics &metrics);

}  // namespace zor::metrics

#endif
