#include "zorctl/bus_metrics.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

namespace zor::ctl {
namespace {

using Json = nlohmann::json;
using Type = MetricFamily::Type;

constexpr double kMsPerSecond = 1000;

// A measurement and the member of a JSON object that it comes from.
struct Row {
  const char *member;
  double scale;  // of the member, by which it is divided
  MetricFamily family;
};

constexpr Row kServer[] = {
    {"uptime_ms",
     kMsPerSecond,
     {"zor_bus_uptime_seconds", Type::kGauge, "seconds", "Time since the message server started."}},
    {"clients", 1, {"zor_bus_clients", Type::kGauge, "", "Connections to the message server."}},
    {"max_clients", 1, {"zor_bus_clients_limit", Type::kGauge, "", "Connections that it accepts."}},
    {"user_clients", 1, {"zor_bus_user_clients_limit", Type::kGauge, "", "Connections that it accepts of one user."}},
    {"held",
     1,
     {"zor_bus_memory_held_bytes", Type::kGauge, "bytes", "Memory that clients take up in the message server."}},
    {"memory_bytes", 1, {"zor_bus_memory_limit_bytes", Type::kGauge, "bytes", "Memory that all clients may take up."}},
    {"user_bytes",
     1,
     {"zor_bus_user_memory_limit_bytes", Type::kGauge, "bytes", "Memory that the clients of one user may take up."}},
    {"queue_bytes", 1, {"zor_bus_queue_limit_bytes", Type::kGauge, "bytes", "Unread output that one client may have."}},
    {"in", 1, {"zor_bus_server_messages_received", Type::kCounter, "", "Messages from all clients."}},
    {"out", 1, {"zor_bus_server_messages_sent", Type::kCounter, "", "Messages to all clients."}},
    {"dropped", 1, {"zor_bus_server_messages_dropped", Type::kCounter, "", "Messages that no client could take."}},
};

constexpr Row kAccess[] = {
    {"rules", 1, {"zor_bus_access_rules", Type::kGauge, "", "Rules of who may do what."}},
    {"refused", 1, {"zor_bus_access_refused", Type::kCounter, "", "What the rules have refused."}},
    {"would_be_refused",
     1,
     {"zor_bus_access_would_be_refused", Type::kCounter, "", "What they would have refused if they were enforced."}},
};

constexpr Row kClient[] = {
    {"in",
     1,
     {"zor_bus_messages_received", Type::kCounter, "", "Messages that the server has received from the daemon."}},
    {"out", 1, {"zor_bus_messages_sent", Type::kCounter, "", "Messages that the server has sent to the daemon."}},
    {"dropped", 1, {"zor_bus_messages_dropped", Type::kCounter, "", "Messages that the daemon has missed."}},
    {"refused",
     1,
     {"zor_bus_messages_refused", Type::kCounter, "", "Messages to it that were refused because its queue was full."}},
    {"held", 1, {"zor_bus_held_bytes", Type::kGauge, "bytes", "Memory that the daemon takes up in the server."}},
};

constexpr Row kWaiting[] = {
    {"bytes", 1, {"zor_bus_waiting_bytes", Type::kGauge, "bytes", "Bytes that the daemon has not read."}},
    {"messages", 1, {"zor_bus_waiting_messages", Type::kGauge, "", "Messages that the daemon has not read."}},
};
constexpr MetricFamily kProcesses = {"zor_bus_processes", Type::kGauge, "",
                                     "Processes on the bus with the daemon's name."};
constexpr MetricFamily kOldest = {"zor_bus_waiting_oldest_seconds", Type::kGauge, "seconds",
                                  "Age of the oldest message that the daemon has not read."};
constexpr MetricFamily kPending = {"zor_bus_pending_requests", Type::kGauge, "",
                                   "Messages of the daemon that may be requests without a reply."};

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

// What is missing is not measured.
template <class AnyJson>
void AddRows(std::span<const Row> rows, const AnyJson &object, const Labels &labels, Metrics &metrics) {
  for (const Row &row : rows) {
    const auto member = object.find(row.member);
    if (member == object.end() || !member->is_number()) continue;
    metrics.Add(row.family, labels, std::max(member->template get<double>(), 0.0) / row.scale);
  }
}

double SecondsSince(SystemTime time) {
  const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now() - time);
  return std::max<double>(0, static_cast<double>(age.count()) / kMsPerSecond);
}

void AddAge(const MetricFamily &family, const ForeignJson &object, const char *member, Metrics &metrics) {
  if (const auto time = TimeOf(object, member)) metrics.Add(family, {}, SecondsSince(*time));
}

}  // namespace

void AddBusMetrics(const Json &list, Metrics &metrics) {
  const Json server = list.value("server", Json::object());
  AddRows(kServer, server, {}, metrics);
  AddRows(kAccess, server.value("access", Json::object()), {}, metrics);
  std::map<std::string, double> oldest;  // several processes may have a name
  for (const Json &client : list.value("clients", Json::array())) {
    if (client.value("self", false)) continue;
    const std::string name = client.value("name", "");
    const Json waiting = client.value("waiting", Json::object());
    const Labels labels = {{"daemon", name}};
    metrics.Add(kProcesses, labels, 1);
    AddRows(kClient, client, labels, metrics);
    AddRows(kWaiting, waiting, labels, metrics);
    metrics.Add(kPending, labels, static_cast<double>(client.value("pending", Json::array()).size()));
    oldest[name] = std::max(oldest[name], waiting.value("oldest_ms", 0.0) / kMsPerSecond);
  }
  for (const auto &[name, seconds] : oldest) metrics.Add(kOldest, {{"daemon", name}}, seconds);
}

void AddGatewayMetrics(const Gateway &gateway, Metrics &metrics) {
  metrics.SetCommon({{"gateway", gateway.name}});
  metrics.Add(kOnline, {}, gateway.online() ? 1 : 0);
  metrics.Add(kUnwell, {}, static_cast<double>(gateway.unwell().size()));
  if (!gateway.status.is_object() || !gateway.online()) return;
  AddAge(kStatusAge, gateway.status, "time", metrics);
  AddRows(kBridge, gateway.status, {}, metrics);
  const ForeignJson &queue = MemberOf(gateway.status, "queue"), &line = MemberOf(gateway.status, "line");
  AddRows(kQueue, queue, {}, metrics);
  AddAge(kQueueOldest, queue, "oldest", metrics);
  AddRows(kLine, line, {}, metrics);
  AddAge(kLineSince, line, "since", metrics);
  AddRows(kRequests, MemberOf(gateway.status, "requests"), {}, metrics);
  AddBusMetrics(CheckedList(MemberOf(gateway.status, "bus")), metrics);
}

}  // namespace zor::ctl
