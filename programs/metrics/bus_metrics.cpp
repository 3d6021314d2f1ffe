#include "programs/metrics/bus_metrics.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "programs/metrics/rows.h"

namespace zor::metrics {
namespace {

using Json = nlohmann::json;
using Type = MetricFamily::Type;

constexpr double kMsPerSecond = 1000;

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

}  // namespace zor::metrics
