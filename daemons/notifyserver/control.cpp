#include "notifyserver/control.h"

#include <unistd.h>
#include <zor/notify_control_wire.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "programs/json.h"
#include "programs/limits.h"

namespace zor::notifyserver {
namespace {

using daemon::AddNumber;
using daemon::AddText;

void AddUnread(cJSON *object, const Client::Unread &unread) {
  cJSON *waiting = cJSON_AddObjectToObject(object, "waiting");
  AddNumber(waiting, "bytes", unread.bytes);
  AddNumber(waiting, "messages", unread.messages);
  AddNumber(waiting, "socket", unread.socket);
}

void AddPendingRequests(cJSON *object, const std::vector<Request> &requests) {
  cJSON *array = cJSON_AddArrayToObject(object, "pending");
  for (const Request &request : requests) {
    cJSON *item = cJSON_CreateObject();
    AddNumber(item, "to", request.module);
    AddNumber(item, "type", request.type);
    AddNumber(item, "sequence", request.sequence);
    cJSON_AddItemToArray(array, item);
  }
}

std::string ClientText(const Client &client) {
  const daemon::Json json(cJSON_CreateObject());
  AddNumber(json.get(), "module", client.mid());
  AddNumber(json.get(), "pid", client.peer().pid);
  AddNumber(json.get(), "uid", client.peer().uid);
  AddNumber(json.get(), "since", client.since());
  AddNumber(json.get(), "in", client.counts.in);
  AddNumber(json.get(), "out", client.counts.out);
  AddNumber(json.get(), "dropped", client.counts.dropped);
  AddUnread(json.get(), client.unread());
  AddPendingRequests(json.get(), client.requests());
  return daemon::JsonText(json.get());
}

}  // namespace

bool Control::IsRequest(const Frame &frame) {
  return frame.kind() == Frame::Kind::kRequest && frame.head.des_id == ZOR_NOTIFY_MID_SERVER &&
         frame.head.msg_type >= ZOR_NOTIFY_CONTROL_FIRST && frame.head.msg_type <= ZOR_NOTIFY_CONTROL_LAST;
}

void Control::Reply(Client &from, const Frame &request) {
  const OwedReplyRecord asked = {from.id(), request.head.msg_type, request.head.seq};
  const bool granted = IsGranted(from, asked.type);
  from.SetOperator(granted);
  if (!granted) return Send(from, asked, ZOR_CONTROL_REFUSED, {});
  if (request.head.msg_type == ZOR_NOTIFY_CONTROL_RESTART) {
    if (owed_) return Send(from, asked, ZOR_CONTROL_UNCHANGED, "it is being replaced already");
    owed_ = asked;
  } else if (request.head.msg_type == ZOR_NOTIFY_CONTROL_LIST) {
    const std::string text = List();
    Send(from, asked, text.empty() ? ZOR_CONTROL_FAILED : ZOR_CONTROL_OK, text);
  } else if (request.head.msg_type == ZOR_NOTIFY_CONTROL_REFUSALS) {
    Send(from, asked, ZOR_CONTROL_OK, guard_.refusals().Text());
  } else if (request.head.msg_type == ZOR_NOTIFY_CONTROL_ACCESS_RELOAD) {
    const access::Reloaded reloaded = access::ReloadRules(guard_, from.Label().c_str(), log_);
    Send(from, asked, reloaded.done ? ZOR_CONTROL_OK : ZOR_CONTROL_UNCHANGED, reloaded.text);
  } else {
    Send(from, asked, ZOR_CONTROL_UNKNOWN, {});
  }
}

bool Control::IsGranted(const Client &client, uint32_t type) {
  const access::Action action = {access::Verb::kControl, type, {}, nullptr};
  const auto [granted, answer] = access::AskControl(guard_, client.subject(), client.peer().uid, action);
  access::LogRefusal(log_, client.holder(), client.Label().c_str(), guard_, client.subject(), action, answer);
  return granted;
}

void Control::PayOwed(Client &to, uint32_t result, std::string_view text) {
  if (owed_) Send(to, *owed_, result, text);
  owed_.reset();
}

void Control::Send(Client &to, const OwedReplyRecord &asked, uint32_t result, std::string_view text) {
  ZOR_NOTIFY_MSG head = ReplyHead(asked.type, asked.sequence, ZOR_NOTIFY_MID_SERVER, to.mid());
  head.data_len = static_cast<uint32_t>(sizeof result + text.size());
  std::vector<std::byte> bytes(sizeof head + head.data_len);
  std::memcpy(bytes.data(), &head, sizeof head);
  std::memcpy(bytes.data() + sizeof head, &result, sizeof result);
  if (!text.empty()) std::memcpy(bytes.data() + sizeof head + sizeof result, text.data(), text.size());
  to.Deliver(bytes);
}

std::string Control::ServerText() const {
  using std::chrono::milliseconds;
  const auto uptime = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start_);
  size_t clients = 0;
  for (const auto &module : modules_) clients += module.size();
  const daemon::Json server(cJSON_CreateObject());
  AddText(server.get(), "name", "notifyserver");
  AddNumber(server.get(), "pid", ::getpid());
  AddNumber(server.get(), "uid", ::geteuid());
  AddNumber(server.get(), "uptime_ms", uptime.count());
  AddNumber(server.get(), "clients", clients);
  AddNumber(server.get(), "max_clients", limits_.maxClients);
  AddNumber(server.get(), "queue_bytes", limits_.queueBytes);
  return daemon::JsonText(server.get());
}

// Converts one client at a time: a tree of all clients would take many times the memory of the text.
std::string Control::List() const {
  const size_t room = limits_.queueBytes - limits::notifyserver::kQueueOverhead;
  const size_t maxText = std::min<size_t>(room, ZOR_NOTIFY_DATA_MAX - sizeof(uint32_t));
  std::string text = "{\"server\":" + ServerText() + ",\"clients\":[";
  const char *separator = "";
  for (const auto &module : modules_) {
    for (const Client *client : module) {
      const std::string entry = ClientText(*client);
      if (entry.empty()) return {};
      text += std::exchange(separator, ",") + entry;
    }
  }
  text += "]}";
  return text.size() > maxText ? std::string() : text;
}

}  // namespace zor::notifyserver
