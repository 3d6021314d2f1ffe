#include "notifyserver/router.h"

#include <algorithm>
#include <ctime>

#include "common/limits.h"

namespace zor::notifyserver {
namespace {

bool MayRegister(uint32_t mid) {
  return mid >= ZOR_NOTIFY_MID_FIRST && mid <= ZOR_NOTIFY_MID_LAST && mid != ZOR_NOTIFY_MID_SERVER;
}

bool IsRegistration(const Frame &frame) {
  return frame.kind() == Frame::Kind::kNotification && frame.head.des_id == ZOR_NOTIFY_MID_SERVER &&
         frame.head.msg_type == ZOR_NOTIFY_TYPE_REGISTER && frame.head.data_len >= sizeof(uint32_t);
}

void AnswerEmpty(Client &requester, const Request &request) {
  requester.Deliver(BuildEmptyAnswer(request.type, request.sequence, request.module, requester.mid));
}

// Answers and forgets the requests of one client that satisfy the predicate.
template <class Predicate>
void AnswerEmptyIf(Client &requester, Predicate &&matches) {
  std::erase_if(requester.requests, [&](const Request &request) {
    if (!matches(request)) return false;
    AnswerEmpty(requester, request);
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
    control_.Answer(from, frame);
    return;
  }
  if (!from.registered()) {
    from.End("its first frame is not a registration");
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
    case Frame::Kind::kAnswer:
      RouteAnswer(from, frame);
      break;
  }
}

void Router::Remove(const Client &client) {
  if (!client.registered()) return;
  std::erase(modules_[client.mid], &client);
  if (verbose_) log_.Print("%s has gone", client.Label().c_str());
  for (const auto &clients : modules_) {
    for (Client *requester : clients) {
      AnswerEmptyIf(*requester, [&](const Request &request) { return request.answerer == &client; });
    }
  }
}

void Router::Register(Client &client, const Frame &frame) {
  const uint32_t mid = frame.FirstValue();
  if (client.registered()) {
    if (client.mid != mid) client.End("it registers under a second id");
  } else if (!MayRegister(mid)) {
    client.End("it registers under an id that no module has");
  } else {
    client.mid = mid;
    client.since = std::time(nullptr);
    modules_[mid].push_back(&client);
    if (verbose_) log_.Print("%s has registered", client.Label().c_str());
  }
}

void Router::RouteNotification(Client &from, const Frame &frame) {
  if (Client *destination = Oldest(frame.head.des_id)) {
    destination->Deliver(frame.bytes);
    return;
  }
  ++from.counts.dropped;
  if (verbose_) {
    log_.Print("notification 0x%x from module %u lost: there is no module %u", frame.head.msg_type,
               frame.head.source_id, frame.head.des_id);
  }
}

void Router::RouteRequest(Client &from, const Frame &frame) {
  Client *answerer = Oldest(frame.head.des_id);
  const Request request = {frame.head.msg_type, frame.head.seq, frame.head.des_id, answerer};
  // The requester would take its own request, sent back to it, for the answer.
  if (answerer == nullptr || answerer == &from) {
    ++from.counts.dropped;
    AnswerEmpty(from, request);
    return;
  }
  // It has given up the oldest ones, or it asks without waiting; new ones are the ones that count.
  if (from.requests.size() == limits::notifyserver::kRequests) {
    const Request oldest = from.requests.front();
    from.requests.pop_front();
    AnswerEmpty(from, oldest);
  }
  from.requests.push_back(request);
  answerer->Deliver(frame.bytes);
}

void Router::RouteAnswer(Client &from, const Frame &frame) {
  for (Client *requester : ClientsOf(frame.head.des_id)) {
    const auto request = std::find_if(requester->requests.begin(), requester->requests.end(), [&](const Request &r) {
      return r.answerer == &from && r.type == frame.head.msg_type && r.sequence == frame.head.seq;
    });
    if (request == requester->requests.end()) continue;
    requester->requests.erase(request);
    requester->Deliver(frame.bytes);
    return;
  }
  ++from.counts.dropped;
  if (!verbose_) return;
  log_.Print("answer 0x%x from module %u dropped: module %u does not wait for it", frame.head.msg_type,
             frame.head.source_id, frame.head.des_id);
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
