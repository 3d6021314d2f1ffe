#include "notifyserver/router.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "programs/limits.h"

namespace zor::notifyserver {
namespace {

bool IsRegistration(const Frame &frame) {
  return frame.kind() == Frame::Kind::kNotification && frame.head.des_id == ZOR_NOTIFY_MID_SERVER &&
         frame.head.msg_type == ZOR_NOTIFY_TYPE_REGISTER && frame.head.data_len >= sizeof(uint32_t);
}

void SendEmptyReply(Client &requester, const Request &request) {
  const auto reply = BuildEmptyReply(request.type, request.sequence, request.module, requester.mid());
  // It would wait for minutes.
  if (!requester.Deliver(reply) && requester.reachable()) requester.End("no memory for a reply to it");
}

// Sends empty replies to the requests of one client that satisfy the predicate, and removes them.
template <class Predicate>
void SendEmptyReplies(Client &requester, Predicate &&matches) {
  requester.RemoveRequests(matches, [&](const Request &request) { SendEmptyReply(requester, request); });
}

Request RequestIn(const Frame &frame, uint64_t responder) {
  return {frame.head.msg_type, frame.head.seq, frame.head.des_id, 0, responder};
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
  frame.SetSource(from.mid());
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

void Router::Refuse(Client &from, const Frame &frame) {
  ++from.counts.dropped;
  if (from.registered() && frame.kind() == Frame::Kind::kRequest) SendEmptyReply(from, RequestIn(frame, 0));
}

void Router::Remove(const Client &client) {
  if (!client.registered()) return;
  std::erase(modules_[client.mid()], &client);
  if (verbose_) log_.PrintOf(client.holder(), "%s disconnected", client.Label().c_str());
  ForEach([&](Client &requester) {
    SendEmptyReplies(requester, [&](const Request &request) { return request.responder == client.id(); });
  });
}

void Router::Adopt(Client &client) {
  modules_[client.mid()].push_back(&client);
  lastRegistration_ = std::max(lastRegistration_, client.registration());
}

void Router::EndOrphans() {
  std::unordered_set<uint64_t> present;
  ForEach([&](const Client &client) { present.insert(client.id()); });
  ForEach([&](Client &requester) {
    SendEmptyReplies(requester, [&](const Request &request) { return !present.contains(request.responder); });
  });
}

template <class Visit>
void Router::ForEach(Visit visit) {
  for (const auto &clients : modules_) {
    for (Client *client : clients) visit(*client);
  }
}

void Router::Register(Client &client, const Frame &frame) {
  const uint32_t mid = frame.FirstValue();
  if (client.registered()) {
    if (client.mid() != mid) client.End("it registered a second id");
  } else if (!MayRegister(mid)) {
    client.End("it registered an invalid id");
  } else if (!MayTake(client, mid)) {
    client.End();  // a line says why
  } else {
    modules_[mid].push_back(&client);
    client.Register(mid, ++lastRegistration_);
    if (verbose_) log_.PrintOf(client.holder(), "%s registered", client.Label().c_str());
  }
}

bool Router::MayTake(const Client &client, uint32_t mid) {
  const Client *holder = Oldest(mid);
  const access::Action action = {
      access::Verb::kModule, mid, {}, holder == nullptr ? nullptr : &guard_.IdentityOf(holder->subject())};
  const access::Guard::Answer answer = guard_.Ask(client.subject(), action);
  access::LogRefusal(log_, client.holder(), client.Label().c_str(), guard_, client.subject(), action, answer);
  return answer.passes;
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
  // The requester would accept its own request, sent back to it, as the reply.
  if (responder == nullptr || responder == &from) return Refuse(from, frame);
  // The requester has given up its oldest requests, or never waits for replies; new requests matter more.
  if (from.requests().size() >= limits::notifyserver::kRequests) {
    SendEmptyReplies(from, [oldest = true](const Request &) mutable { return std::exchange(oldest, false); });
  }
  if (!Deliver(*responder, frame)) return Refuse(from, frame);
  from.AddRequest(RequestIn(frame, responder->id()));
}

void Router::RouteReply(Client &from, const Frame &frame) {
  for (Client *requester : ClientsOf(frame.head.des_id)) {
    bool found = false;
    const auto answers = [&](const Request &r) {
      return !found && r.responder == from.id() && r.type == frame.head.msg_type && r.sequence == frame.head.seq;
    };
    requester->RemoveRequests(answers, [&](const Request &expected) {
      found = true;
      if (Deliver(*requester, frame)) return;
      ++from.counts.dropped;
      SendEmptyReply(*requester, expected);
    });
    if (found) return;
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
