#include "zorweb/view_json.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "programs/limits.h"
#include "programs/messages/message_types.h"
#include "programs/messages/text.h"

namespace zor::web {
namespace {

using Json = nlohmann::ordered_json;
using busview::Client;
using busview::Rate;
using busview::Rates;
using busview::Sample;
using busview::View;
using messages::Escape;

constexpr std::size_t kPerDaemon = 16;  // requests, patterns and such that a page shows of one

void AddRate(Json &object, const char *name, const Rate &rate) {
  if (rate) object[name] = std::round(*rate * 10) / 10;
}

void AddCount(Json &object, const char *name, const busview::Count &count) {
  if (count) object[name] = *count;
}

void AddTraffic(Json &object, const busview::Traffic &traffic, const Rates &rates) {
  AddCount(object, "sent", traffic.sent);
  AddCount(object, "received", traffic.received);
  AddCount(object, "dropped", traffic.dropped);
  AddRate(object, "sent_rate", rates.sent);
  AddRate(object, "received_rate", rates.received);
  AddRate(object, "sent_bytes_rate", rates.sentBytes);
  AddRate(object, "received_bytes_rate", rates.receivedBytes);
  if (rates.cpu) object["cpu"] = std::round(*rates.cpu * 1000) / 10;
}

template <class Items, class Make>
Json List(const Items &items, const Make &make) {
  Json list = Json::array();
  for (const auto &item : items) {
    if (list.size() == kPerDaemon) break;
    list.push_back(make(item));
  }
  return list;
}

Json RequestJson(const daemon::PendingRequest &request) {
  return {{"to", Escape(request.to)},
          {"type", messages::TypeText(request.type)},
          {"age_ms", request.ageMs},
          {"waits", daemon::WaitsText(request.waits)}};
}

Json DaemonJson(const Client &client, const Rates &rates) {
  const daemon::Daemon &daemon = client.daemon;
  Json json = {{"name", Escape(daemon.name)}, {"pid", daemon.pid}};
  if (!client.board.empty()) json["board"] = Escape(client.board);
  json["uid"] = client.uid;
  json["since"] = client.since;
  json["state"] = daemon::StateText(daemon.state);
  if (busview::IsStopped(client)) json["stopped"] = true;
  AddTraffic(json, client.traffic, rates);
  json["unread"] = daemon.unread;
  if (daemon.unreadAtLeast) json["unread_at_least"] = true;
  json["unread_bytes"] = client.unreadBytes;
  json["unread_ms"] = daemon.unreadMs;
  json["refused"] = daemon.refused;
  json["held"] = client.heldBytes;
  json["events"] = List(client.events, [](std::uint32_t type) { return messages::TypeText(type); });
  json["events_count"] = client.events.size();
  json["patterns"] = List(client.patterns, [](const std::string &pattern) { return Escape(pattern); });
  json["pending"] = List(daemon.pending, RequestJson);
  json["pending_count"] = daemon.pending.size();
  return json;
}

Json ServerJson(const Sample &sample, const View &view) {
  const busview::Server &server = sample.server;
  Json json = {{"name", Escape(server.name)},      {"pid", server.pid},
               {"uptime_ms", server.uptimeMs},     {"clients", server.clients},
               {"max_clients", server.maxClients}, {"held", server.heldBytes},
               {"memory", server.memoryBytes}};
  AddTraffic(json, server.traffic, view.server);
  return json;
}

Json WaitJson(const Sample &sample, const busview::Wait &wait) {
  Json json = {{"from", wait.from},       {"name", Escape(sample.clients[wait.from].daemon.name)},
               {"to", Escape(wait.name)}, {"type", messages::TypeText(wait.type)},
               {"age_ms", wait.ageMs},    {"perhaps", wait.perhaps},
               {"cycle", wait.inCycle},   {"lasts", wait.lasts()}};
  if (!wait.to) json["absent"] = true;
  return json;
}

}  // namespace

Json ViewJson(std::int64_t nowMs, const Sample &sample, const View &view) {
  using namespace limits::zorweb;  // NOLINT(google-build-using-namespace): its own limits
  const std::size_t shown = std::min(sample.clients.size(), kShownDaemons);
  Json daemons = Json::array(), edges = Json::array(), waits = Json::array(), cycles = Json::array();
  for (std::size_t i = 0; i < shown; ++i) daemons.push_back(DaemonJson(sample.clients[i], view.daemons[i]));
  for (const busview::Edge &edge : view.edges) {
    if (edges.size() == kShownEdges) break;
    edges.push_back({Escape(edge.from), Escape(edge.to), messages::TypeText(edge.type), std::round(edge.perSecond)});
  }
  for (const busview::Wait &wait : view.waits) {
    if (wait.from < shown) waits.push_back(WaitJson(sample, wait));
  }
  for (const std::string &cycle : view.cycles) cycles.push_back(Escape(cycle));
  return {{"time", nowMs},      {"server", ServerJson(sample, view)},
          {"daemons", daemons}, {"left_out", sample.clients.size() - shown},
          {"edges", edges},     {"waits", waits},
          {"cycles", cycles}};
}

}  // namespace zor::web
