#include "notifyserver/control.h"

#include <unistd.h>
#include <zor/notify_control_wire.h>

#include <algorithm>
#include <cstring>

#include "programs/limits.h"

namespace zor::notifyserver {
namespace {

bool MayAsk(const Client &client) {
  return client.peer().uid == 0 || client.peer().uid == ::geteuid();
}

std::string Member(const char *name, uint64_t value) {
  return '"' + std::string(name) + "\":" + std::to_string(value);
}

std::string CountsText(const Client::Counts &counts) {
  return Member("in", counts.in) + "," + Member("out", counts.out) + "," + Member("dropped", counts.dropped);
}

std::string UnreadText(const Client::Unread &unread) {
  return R"("waiting":{)" + Member("bytes", unread.bytes) + "," + Member("messages", unread.messages) + "," +
         Member("socket", unread.socket) + "}";
}

std::string PendingText(const std::deque<Request> &requests) {
  std::string text;
  for (const Request &request : requests) {
    text += (text.empty() ? "{" : ",{") + Member("to", request.module) + "," + Member("type", request.type) + "," +
            Member("sequence", request.sequence) + "}";
  }
  return R"("pending":[)" + text + "]";
}

std::string ClientText(const Client &client) {
  return "{" + Member("module", client.mid) + "," + Member("pid", static_cast<uint64_t>(client.peer().pid)) + "," +
         Member("uid", client.peer().uid) + "," + Member("since", static_cast<uint64_t>(client.since)) + "," +
         CountsText(client.counts) + "," + UnreadText(client.unread()) + "," + PendingText(client.requests) + "}";
}

}  // namespace

bool Control::IsRequest(const Frame &frame) {
  return frame.kind() == Frame::Kind::kRequest && frame.head.des_id == ZOR_NOTIFY_MID_SERVER &&
         frame.head.msg_type >= ZOR_NOTIFY_CONTROL_FIRST && frame.head.msg_type <= ZOR_NOTIFY_CONTROL_LAST;
}

void Control::Reply(Client &from, const Frame &request) const {
  uint32_t result = ZOR_CONTROL_OK;
  std::string text;
  if (!MayAsk(from)) {
    result = ZOR_CONTROL_REFUSED;
  } else if (request.head.msg_type != ZOR_NOTIFY_CONTROL_LIST) {
    result = ZOR_CONTROL_UNKNOWN;
  } else {
    text = List();
  }
  const size_t room = limits_.queueBytes - limits::notifyserver::kQueueOverhead;
  if (text.size() > std::min<size_t>(room, ZOR_NOTIFY_DATA_MAX - sizeof result)) {
    result = ZOR_CONTROL_FAILED;
    text.clear();
  }
  ZOR_NOTIFY_MSG head = ReplyHead(request.head.msg_type, request.head.seq, ZOR_NOTIFY_MID_SERVER, from.mid);
  head.data_len = static_cast<uint32_t>(sizeof result + text.size());
  std::vector<std::byte> bytes(sizeof head + head.data_len);
  std::memcpy(bytes.data(), &head, sizeof head);
  std::memcpy(bytes.data() + sizeof head, &result, sizeof result);
  std::memcpy(bytes.data() + sizeof head + sizeof result, text.data(), text.size());
  from.Deliver(bytes);
}

std::string Control::List() const {
  using std::chrono::milliseconds;
  const auto uptime = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start_);
  std::string clients;
  size_t count = 0;
  for (const auto &module : modules_) {
    for (const Client *client : module) clients += (count++ == 0 ? "" : ",") + ClientText(*client);
  }
  return R"({"server":{"name":"notifyserver",)" + Member("pid", static_cast<uint64_t>(::getpid())) + "," +
         Member("uid", ::geteuid()) + "," + Member("uptime_ms", static_cast<uint64_t>(uptime.count())) + "," +
         Member("clients", count) + "," + Member("max_clients", limits_.maxClients) + "," +
         Member("queue_bytes", limits_.queueBytes) + R"(},"clients":[)" + clients + "]}";
}

}  // namespace zor::notifyserver
