#include "programs/bus_view/sample.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <nlohmann/json.hpp>

#include "programs/bus_view/list.h"
#include "programs/limits.h"

namespace zor::busview {
namespace {

using Json = nlohmann::json;
using daemon::PendingRequest;

// Beyond this, numbers of JSON are no longer exact; no counter gets there.
constexpr double kMaxNumber = 9007199254740992.0;

// A member; null if there is none.
const Json &MemberOf(const Json &object, const char *name) {
  static const Json kNone;
  if (!object.is_object()) return kNone;
  const auto member = object.find(name);
  return member == object.end() ? kNone : *member;
}

Count CountIn(const Json &value) {
  if (!value.is_number()) return std::nullopt;
  const auto number = value.get<double>();
  if (!(number >= 0 && number <= kMaxNumber)) return std::nullopt;
  return static_cast<uint64_t>(number);
}

Count CountOf(const Json &object, const char *name) {
  return CountIn(MemberOf(object, name));
}

uint64_t NumberOf(const Json &object, const char *name) {
  return CountOf(object, name).value_or(0);
}

// 0 for one that does not fit.
uint32_t WordIn(const Json &value) {
  const uint64_t number = CountIn(value).value_or(0);
  return number <= UINT32_MAX ? static_cast<uint32_t>(number) : 0;
}

uint32_t WordOf(const Json &object, const char *name) {
  return WordIn(MemberOf(object, name));
}

int PidOf(const Json &object) {
  const uint64_t pid = NumberOf(object, "pid");
  return pid <= INT_MAX ? static_cast<int>(pid) : 0;
}

std::string TextOf(const Json &object, const char *name) {
  const Json &member = MemberOf(object, name);
  return member.is_string() ? member.get<std::string>() : std::string();
}

bool FlagOf(const Json &object, const char *name, bool otherwise) {
  const Json &member = MemberOf(object, name);
  return member.is_boolean() ? member.get<bool>() : otherwise;
}

// The server counts from its own side.
Traffic TrafficOf(const Json &object) {
  return {CountOf(object, "in"), CountOf(object, "out"), CountOf(object, "in_bytes"), CountOf(object, "out_bytes"),
          CountOf(object, "dropped")};
}

// No value for a message that needs no reply.
std::optional<PendingRequest> RequestOf(const Json &pending, bool senderInLoop) {
  PendingRequest request{TextOf(pending, "to"), WordOf(pending, "type"), WordOf(pending, "sequence"),
                         NumberOf(pending, "age_ms"), daemon::Waits::kNo};
  const auto waits = daemon::WaitsForReply(request.type, FlagOf(pending, "latest", true), senderInLoop);
  if (!waits) return std::nullopt;
  request.waits = *waits;
  return request;
}

daemon::Daemon DaemonOf(const Json &client, const daemon::ProcessState &process) {
  daemon::Daemon daemon;
  daemon.name = TextOf(client, "name");
  if (FlagOf(client, "local", true)) daemon.pid = PidOf(client);
  daemon.state = process.letter;
  const Json &waiting = MemberOf(client, "waiting");
  daemon.unread = NumberOf(waiting, "messages");
  daemon.unreadAtLeast = FlagOf(waiting, "at_least", false);
  daemon.unreadMs = NumberOf(waiting, "oldest_ms");
  daemon.refused = NumberOf(client, "refused");
  daemon.refusedMs = NumberOf(client, "refused_ms");
  for (const Json &pending : MemberOf(client, "pending")) {
    if (!pending.is_object()) continue;
    if (auto request = RequestOf(pending, process.inLoop)) daemon.pending.push_back(std::move(*request));
  }
  return daemon;
}

Client ClientOf(const Json &object, const ProcessReader &read) {
  Client client;
  const int pid = FlagOf(object, "local", true) ? PidOf(object) : 0;
  if (pid > 0) client.process = read(pid);
  client.daemon = DaemonOf(object, client.process);
  client.board = TextOf(object, "board");
  client.uid = NumberOf(object, "uid");
  client.since = NumberOf(object, "since");
  client.unreadBytes = NumberOf(MemberOf(object, "waiting"), "bytes");
  client.heldBytes = NumberOf(object, "held");
  client.traffic = TrafficOf(object);
  for (const Json &event : MemberOf(object, "events")) client.events.push_back(WordIn(event));
  for (const Json &pattern : MemberOf(object, "patterns")) {
    if (pattern.is_string()) client.patterns.push_back(pattern.get<std::string>());
  }
  for (const Json &flow : MemberOf(object, "flows")) {
    if (!flow.is_object()) continue;
    client.flows.push_back({TextOf(flow, "to"), WordOf(flow, "type"), NumberOf(flow, "per_second")});
  }
  return client;
}

Server ServerOf(const Json &object, const ProcessReader &read) {
  Server server;
  server.name = TextOf(object, "name");
  server.pid = PidOf(object);
  if (server.pid > 0) server.process = read(server.pid);
  server.uptimeMs = NumberOf(object, "uptime_ms");
  server.clients = NumberOf(object, "clients");
  server.maxClients = NumberOf(object, "max_clients");
  server.heldBytes = NumberOf(object, "held");
  server.memoryBytes = NumberOf(object, "memory_bytes");
  server.stormRate =
      MemberOf(object, "storm_rate").is_null() ? limits::msgsvr::kStormRate : NumberOf(object, "storm_rate");
  server.traffic = TrafficOf(object);
  return server;
}

}  // namespace

Sample SampleOf(const Json &list, Clock::time_point taken, const ProcessReader &process) {
  Sample sample{taken, ServerOf(MemberOf(list, "server"), process), {}};
  for (const Json &client : MemberOf(list, "clients")) {
    if (client.is_object() && !FlagOf(client, "self", false)) sample.clients.push_back(ClientOf(client, process));
  }
  return sample;
}

std::optional<Sample> ReadSample(std::string_view list, Clock::time_point taken, const ProcessReader &process) {
  const Json parsed = Json::parse(list, nullptr, false);
  if (!MemberOf(parsed, "clients").is_array()) return std::nullopt;
  return SampleOf(parsed, taken, process);
}

}  // namespace zor::busview
