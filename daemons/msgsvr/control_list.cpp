#include "msgsvr/control_list.h"

#include <unistd.h>

#include <algorithm>
#include <vector>

#include "msgsvr/unread.h"
#include "programs/json.h"
#include "programs/limits.h"

namespace zor::msgsvr {
namespace {

// Room for the two closing characters. The receiving library rejects a longer text.
constexpr size_t kMaxText = ZOR_ALLOC_MAX - ZOR_MSG_HEAD_SIZE - 2;

using daemon::AddNumber;
using daemon::AddText;
using daemon::CleanText;
using daemon::Json;
using daemon::JsonText;
void AddCounters(cJSON *object, const Counters &counters) {
  AddNumber(object, "in", counters.in);
  AddNumber(object, "out", counters.out);
  AddNumber(object, "dropped", counters.dropped);
  AddNumber(object, "in_bytes", counters.inBytes);
  AddNumber(object, "out_bytes", counters.outBytes);
}

void AddWaiting(cJSON *object, const Bus &bus, const Client &client, const UnreadBytes &kernel) {
  const auto unread = UnreadOf(client, kernel, bus.nowMs);
  cJSON *waiting = cJSON_AddObjectToObject(object, "waiting");
  AddNumber(waiting, "bytes", unread.bytes);
  AddNumber(waiting, "messages", unread.messages);
  cJSON_AddBoolToObject(waiting, "at_least", unread.atLeast);
  AddNumber(waiting, "oldest_ms", unread.oldestMs);
}

void AddEvents(cJSON *object, const Bus &bus, const Client &client) {
  EventSet events = client.events;
  if (bus.names.Oldest(client.name) == &client) events |= bus.subscriptions.Of(client.name);
  cJSON *array = cJSON_AddArrayToObject(object, "events");
  for (size_t bit = 0; bit < events.size(); ++bit) {
    if (events[bit]) cJSON_AddItemToArray(array, cJSON_CreateNumber(static_cast<double>(ZOR_MSG_EVENT_FIRST + bit)));
  }
}

void AddPatterns(cJSON *object, const Bus &bus, const Client &client) {
  cJSON *array = cJSON_AddArrayToObject(object, "patterns");
  size_t room = limits::msgsvr::kListedPatternBytes;
  for (std::string_view list : bus.patterns.Of(client)) {
    while (!list.empty()) {
      const std::string_view pattern = list.substr(0, list.find('|'));
      list.remove_prefix(std::min(list.size(), pattern.size() + 1));
      if (pattern.empty()) continue;
      const bool fits = pattern.size() <= room;
      cJSON_AddItemToArray(array, cJSON_CreateString(fits ? CleanText(pattern).c_str() : "..."));
      if (!fits) return;
      room -= pattern.size();
    }
  }
}

// A client that has sent another message since is not waiting for this reply, or not for this one alone.
void AddPending(cJSON *array, const Bus &bus, const Client &client, const PendingRequests::Request &pending) {
  cJSON *request = cJSON_CreateObject();
  AddText(request, "to", pending.to.text());
  AddNumber(request, "type", pending.type);
  AddNumber(request, "sequence", pending.sequence);
  AddNumber(request, "age_ms", bus.nowMs - pending.sentMs);
  cJSON_AddBoolToObject(request, "latest", pending.ordinal == client.ordinal());
  cJSON_AddItemToArray(array, request);
}

// A barrier comes last, since a client that waits at one has no other outstanding request.
void AddPendingRequests(cJSON *object, const Bus &bus, const Client &client) {
  cJSON *array = cJSON_AddArrayToObject(object, "pending");
  for (const auto &request : client.pending.requests()) AddPending(array, bus, client, request);
  for (const Barriers::Waiter &waiter : bus.barriers.waiters()) {
    if (waiter.client != &client) continue;
    AddPending(array, bus, client, {{}, ZOR_MSG_SYNC_WAIT, waiter.sequence, waiter.sinceMs, waiter.ordinal});
  }
}

// By id, which is their order.
using ClientIndex = std::vector<const Client *>;

ClientIndex IndexOf(const Bus &bus) {
  ClientIndex index;
  index.reserve(bus.clients.size());
  for (const Client &client : bus.clients) index.push_back(&client);
  return index;
}

// Those to clients that have disconnected are left out.
void AddFlows(cJSON *object, const Client &client, const ClientIndex &index) {
  if (client.flows.state().rates == Flows::Table()) return;
  cJSON *array = cJSON_AddArrayToObject(object, "flows");
  for (const Flows::Flow &flow : client.flows.state().rates) {
    if (flow.count == 0) continue;
    const auto to = std::ranges::lower_bound(index, flow.to, {}, &Client::id);
    if (flow.to != 0 && (to == index.end() || (*to)->id != flow.to || (*to)->ended)) continue;
    cJSON *rate = cJSON_CreateObject();
    AddText(rate, "to", flow.to == 0 ? std::string_view() : (*to)->name.text());
    AddNumber(rate, "type", flow.type);
    AddNumber(rate, "per_second", flow.count);
    cJSON_AddItemToArray(array, rate);
  }
}

void AddAccess(cJSON *object, const access::Guard &guard) {
  cJSON *access = cJSON_AddObjectToObject(object, "access");
  AddText(access, "mode", guard.rules().ModeName());
  AddNumber(access, "rules", guard.rules().list().size());
  AddNumber(access, "refused", guard.refusals().total() - guard.observed());
  AddNumber(access, "would_be_refused", guard.observed());
}

std::string ServerText(const Bus &bus) {
  const Json server(cJSON_CreateObject());
  const auto uptime = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - bus.started);
  AddText(server.get(), "name", "msgsvr");
  AddNumber(server.get(), "pid", ::getpid());
  AddNumber(server.get(), "uid", ::geteuid());
  AddNumber(server.get(), "uptime_ms", uptime.count());
  AddNumber(server.get(), "clients", bus.clients.size());
  AddNumber(server.get(), "max_clients", bus.settings.maxClients);
  AddNumber(server.get(), "queue_bytes", bus.settings.queueBytes);
  AddNumber(server.get(), "user_clients", bus.settings.userClients);
  AddNumber(server.get(), "user_bytes", bus.settings.userBytes);
  AddNumber(server.get(), "memory_bytes", bus.settings.memoryBytes);
  AddNumber(server.get(), "storm_rate", bus.settings.stormRate);
  AddNumber(server.get(), "held", bus.accounts.bytes());
  AddCounters(server.get(), bus.counters);
  AddAccess(server.get(), bus.guard);
  return JsonText(server.get());
}

// What all clients of a list have in common.
struct ListContext {
  const Client &asker;
  UnreadBytes kernel = {};
  ClientIndex index;
};

std::string ClientText(const Bus &bus, const Client &client, const ListContext &context) {
  const Json json(cJSON_CreateObject());
  AddText(json.get(), "name", client.name.text());
  AddNumber(json.get(), "pid", client.peer.pid);
  AddNumber(json.get(), "uid", client.peer.uid);
  cJSON_AddBoolToObject(json.get(), "local", client.peer.local);
  if (client.peer.throughTunnel) AddText(json.get(), "board", client.board().name);
  cJSON_AddBoolToObject(json.get(), "self", &client == &context.asker);
  AddNumber(json.get(), "since", client.since);
  AddCounters(json.get(), client.counters);
  AddNumber(json.get(), "refused", client.refusals.total());
  if (client.refusals.total() > 0) AddNumber(json.get(), "refused_ms", bus.nowMs - client.refusals.latestMs());
  AddNumber(json.get(), "held", client.charge.bytes());
  AddWaiting(json.get(), bus, client, context.kernel);
  AddEvents(json.get(), bus, client);
  AddPatterns(json.get(), bus, client);
  AddPendingRequests(json.get(), bus, client);
  AddFlows(json.get(), client, context.index);
  return JsonText(json.get());
}

}  // namespace

// Converts one client at a time: a tree of all clients would take many times the memory of the text.
std::string ListText(const Bus &bus, const Client &asker) {
  const ListContext context = {.asker = asker, .index = IndexOf(bus)};
  std::string text = "{\"server\":" + ServerText(bus) + ",\"clients\":[";
  bool first = true;
  for (const Client &client : bus.clients) {
    if (client.ended || !client.registered()) continue;
    if (!std::exchange(first, false)) text += ',';
    const std::string entry = ClientText(bus, client, context);
    if (entry.empty() || text.size() + entry.size() > kMaxText) return {};
    text += entry;
  }
  return text + "]}";
}

}  // namespace zor::msgsvr
