#include "notifyserver/router.h"

#include <algorithm>
#include <ctime>

#include "programs/limits.h"

namespace zor::notifyserver {
namespace {

bool MayRegister(uint32_t mid) {
  return mid >= ZOR_NOTIFY_MID_FIRST && mid <= ZOR_NOTIFY_MID_LAST && mid != ZOR_NOTIFY_MID_SERVER;
}

bool IsRegistration(const Frame &frame) {
  return frame.kind() == Frame::Kind::kNotification && frame.head.des_id == ZOR_NOTIFY_MID_SERVER &&
         frame.head.msg_type == ZOR_NOTIFY_TYPE_REGISTER && frame.head.data_len >= sizeof(uint32_t);
}

void SendEmptyReply(Client &requester, const Request &request) {
  const auto reply = BuildEmptyReply(request.type, request.sequence, request.module, requester.mid);
  // It would wait for minutes.
  if (!requester.Deliver(reply) && requester.reachable()) requester.End("no memory for a reply to it");
}

// Sends empty replies to the requests of one client that satisfy the predicate, and removes them.
template <class Predicate>
void SendEmptyReplies(Client &requester, Predicate &&matches) {
  std::erase_if(requester.requests, [&](const Request &request) {
    if (!matches(request)) return false;
    SendEmptyReply(requester, request);
    return true;
  });
}

}  // namespace

void Router::Route(Client &from, Frame &frame) {
  if (IsRegistration(frame)) {
    Register(from, frame);
    return;
  }
  if (Control::IsRequest(frame)) {
    control_.Reply(from, frame);
    return;
  }
  if (!from.registered()) {
    from.End("its first frame was not a registration");
    return;
  }
  frame.SetSource(from.mid);
  ++from.counts.in;
  switch (frame.kind()) {
    case Frame::Kind::kNotification:
      RouteNotification(from, frame);
      break;
    case Frame::Kind::kRequest:
      RouteRequest(from, frame);
      break;
    case Frame::Kind::kReply:
      RouteReply(from, frame);
      break;
  }
}

void Router::Remove(const Client &client) {
  if (!client.registered()) return;
  std::erase(modules_[client.mid], &client);
  if (verbose_) log_.PrintOf(client.holder(), "%s disconnected", client.Label().c_str());
  for (const auto &clients : modules_) {
    for (Client *requester : clients) {
      SendEmptyReplies(*requester, [&](const Request &request) { return request.responder == &client; });
    }
  }
}

void Router::Register(Client &client, const Frame &frame) {
  const uint32_t mid = frame.FirstValue();
  if (client.registered()) {
    if (client.mid != mid) client.End("it registered a second id");
  } else if (!MayRegister(mid)) {
    client.End("it registered an invalid id");
  } else {
    modules_[mid].push_back(&client);
    client.mid = mid;
    client.since = std::time(nullptr);
    if (verbose_) log_.PrintOf(client.holder(), "%s registered", client.Label().c_str());
  }
}

void Router::RouteNotification(Client &from, const Frame &frame) {
  if (Client *destination = Oldest(frame.head.des_id)) {
    if (!Deliver(*destination, frame)) ++from.counts.dropped;
    return;
  }
  ++from.counts.dropped;
  if (verbose_) {
    log_.PrintOf(from.holder(), "notification 0x%x from module %u dropped: no module %u", frame.head.msg_type,
                 frame.head.source_id, frame.head.des_id);
  }
}

void Router::RouteRequest(Client &from, const Frame &frame) {
  Client *responder = Oldest(frame.head.des_id);
  const Request request = {frame.head.msg_type, frame.head.seq, frame.head.des_id, responder};
  // The requester would accept its own request, sent back to it, as the reply.
  if (responder == nullptr || responder == &from) {
    ++from.counts.dropped;
    SendEmptyReply(from, request);
    return;
  }
  // The requester has given up its oldest requests, or never waits for replies; new requests matter more.
  if (from.requests.size() == limits::notifyserver::kRequests) {
    const Request oldest = from.requests.front();
    from.requests.pop_front();
    SendEmptyReply(from, oldest);
  }
  from.requests.push_back(request);
  if (Deliver(*responder, frame)) return;
  ++from.counts.dropped;
  from.requests.pop_back();
  SendEmptyReply(from, request);
}

void Router::RouteReply(Client &from, const Frame &frame) {
  for (Client *requester : ClientsOf(frame.head.des_id)) {
    const auto request = std::find_if(requester->requests.begin(), requester->requests.end(), [&](const Request &r) {
      return r.responder == &from && r.type == frame.head.msg_type && r.sequence == frame.head.seq;
    });
    if (request == requester->requests.end()) continue;
    const Request expected = *request;
    requester->requests.erase(request);
    if (!Deliver(*requester, frame)) {
      ++from.counts.dropped;
      SendEmptyReply(*requester, expected);
    }
    return;
  }
  ++from.counts.dropped;
  if (!verbose_) return;
  log_.PrintOf(from.holder(), "reply 0x%x from module %u dropped: module %u has no such request", frame.head.msg_type,
               frame.head.source_id, frame.head.des_id);
}

bool Router::Deliver(Client &to, const Frame &frame) {
  if (to.Deliver(frame.bytes) || !to.reachable()) return true;
  log_.PrintOf(to.holder(), "message 0x%x of %zu bytes to %s dropped: no memory", frame.head.msg_type,
               frame.bytes.size(), to.Label().c_str());
  return false;
}

std::vector<Client *> &Router::ClientsOf(uint32_t mid) {
  return modules_[mid < modules_.size() ? mid : 0];
}

Client *Router::Oldest(uint32_t mid) {
  const auto &clients = ClientsOf(mid);
  const auto found =
      std::find_if(clients.begin(), clients.end(), [](const Client *client) { return client->reachable(); });
  return found == clients.end() ? nullptr : *found;
}

}  // namespace zor::notifyserver
