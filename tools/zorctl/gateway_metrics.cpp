#include "zorctl/gateway_metrics.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "programs/metrics/bus_metrics.h"
#include "programs/metrics/rows.h"

namespace zor::ctl {
namespace {

using metrics::MetricFamily;
using metrics::Metrics;
using metrics::Row;
using Type = MetricFamily::Type;

constexpr double kMsPerSecond = 1000;

constexpr MetricFamily kOnline = {"zor_gateway_online", Type::kGauge, "",
                                  "1 while the gateway's bridge is connected to the broker."};
constexpr MetricFamily kUnwell = {"zor_gateway_unwell", Type::kGauge, "",
                                  "Troubles that the gateway reports or its messages show."};
constexpr MetricFamily kStatusAge = {"zor_gateway_status_age_seconds", Type::kGauge, "seconds",
                                     "Age of the gateway's latest status."};
constexpr MetricFamily kQueueOldest = {"zor_bridge_queue_oldest_seconds", Type::kGauge, "seconds",
                                       "Age of the oldest record in the bridge's queue."};
constexpr MetricFamily kLineSince = {"zor_bridge_line_seconds", Type::kGauge, "seconds",
                                     "Time since the bridge connected."};

constexpr Row kBridge[] = {
    {"uptime_s", 1, {"zor_bridge_uptime_seconds", Type::kGauge, "seconds", "Time since the bridge started."}},
    {"missed_events", 1, {"zor_bridge_missed_events", Type::kCounter, "", "Events that the bridge itself has missed."}},
};
constexpr Row kQueue[] = {
    {"records", 1, {"zor_bridge_queue_records", Type::kGauge, "", "Records that the broker has not acknowledged."}},
    {"bytes", 1, {"zor_bridge_queue_bytes", Type::kGauge, "bytes", "Bytes of these records."}},
    {"limit_bytes", 1, {"zor_bridge_queue_limit_bytes", Type::kGauge, "bytes", "Bytes that the queue may have."}},
    {"given_up", 1, {"zor_bridge_queue_given_up", Type::kCounter, "", "Records that did not fit the queue."}},
    {"written_today_bytes",
     1,
     {"zor_bridge_queue_written_today_bytes", Type::kGauge, "bytes", "Bytes written to flash in the current day."}},
    {"daily_bytes",
     1,
     {"zor_bridge_queue_daily_limit_bytes", Type::kGauge, "bytes", "Bytes that may be written in a day."}},
};
constexpr Row kLine[] = {
    {"connects", 1, {"zor_bridge_line_connects", Type::kCounter, "", "Connections of the bridge to a broker."}},
    {"failures",
     1,
     {"zor_bridge_line_failures", Type::kCounter, "", "Attempts to connect that failed, and connections that ended."}},
    {"dropped",
     1,
     {"zor_bridge_line_dropped", Type::kCounter, "",
      "Messages for which there was no connection and which are not kept."}},
};
constexpr Row kRequests[] = {
    {"served", 1, {"zor_bridge_requests_served", Type::kCounter, "", "Requests from outside that were done."}},
    {"failed",
     1,
     {"zor_bridge_requests_failed", Type::kCounter, "", "Requests from outside that were refused or failed."}},
    {"dropped",
     1,
     {"zor_bridge_requests_dropped", Type::kCounter, "", "Requests from outside that could not be answered."}},
};

double SecondsSince(SystemTime time) {
  const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now() - time);
  return std::max<double>(0, static_cast<double>(age.count()) / kMsPerSecond);
}

void AddAge(const MetricFamily &family, const ForeignJson &object, const char *member, Metrics &out) {
  if (const auto time = TimeOf(object, member)) out.Add(family, {}, SecondsSince(*time));
}

}  // namespace

void AddGatewayMetrics(const Gateway &gateway, Metrics &out) {
  out.SetCommon({{"gateway", gateway.name}});
  out.Add(kOnline, {}, gateway.online() ? 1 : 0);
  out.Add(kUnwell, {}, static_cast<double>(gateway.unwell().size()));
  if (!gateway.status.is_object() || !gateway.online()) return;
  AddAge(kStatusAge, gateway.status, "time", out);
  metrics::AddRows(kBridge, gateway.status, {}, out);
  const ForeignJson &queue = MemberOf(gateway.status, "queue"), &line = MemberOf(gateway.status, "line");
  metrics::AddRows(kQueue, queue, {}, out);
  AddAge(kQueueOldest, queue, "oldest", out);
  metrics::AddRows(kLine, line, {}, out);
  AddAge(kLineSince, line, "since", out);
  metrics::AddRows(kRequests, MemberOf(gateway.status, "requests"), {}, out);
  metrics::AddBusMetrics(CheckedList(MemberOf(gateway.status, "bus")), out);
}

}  // namespace zor::ctl
