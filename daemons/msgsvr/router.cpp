#include "msgsvr/router.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "msgsvr/introduction.h"
#include "msgsvr/registration.h"
#include "programs/limits.h"

namespace zor::msgsvr {
namespace {

bool IsEvent(const Frame &frame) {
  static const AppName kBroker("mic");  // events with items are sent to this name, those with a text to no name
  return IsEventType(frame.type()) && (frame.destination.empty() || frame.destination == kBroker);
}

bool IsRegistration(const Frame &frame) {
  return frame.type() == ZOR_MSG_REGISTER_APP && frame.destination.empty();
}

bool IsRestful(uint32_t type) {
  return type == ZOR_MSG_RESTFUL_REQUEST_A || type == ZOR_MSG_RESTFUL_REQUEST || type == ZOR_MSG_RESTFUL_REQUEST_B;
}

}  // namespace

size_t Router::Route(Client &from, std::span<std::byte> bytes) {
  size_t used = 0;
  files_.BeginTurn();
  for (size_t routed = 0; !from.ended && routed < limits::msgsvr::kMessagesInTurn; ++routed) {
    if (files_.HasCopiedItsDue()) break;
    Parsed parsed = ParseFrame(bytes.subspan(used));
    if (parsed.state == Parsed::State::kPartial) break;
    if (parsed.state == Parsed::State::kMalformed) {
      bus_.CutOff(from, parsed.reason);
      break;
    }
    used += parsed.frame.bytes.size();
    bus_.journal.SetFrameAt(static_cast<size_t>(parsed.frame.bytes.data() - bus_.journal.buffer().data()));
    if (!bus_.Try([&] { RouteFrame(from, parsed.frame); })) GiveUp(from, parsed.frame);
    delivery_.EndFrame(from, parsed.frame.bytes);
    if (parsed.frame.bodyInFile()) files_.EndFrame();
  }
  delivery_.FlushRun();
  delivery_.FlushPosted();
  return used;
}

// There was no memory for it. A client without a name is not told of what it needs.
void Router::GiveUp(Client &from, const Frame &frame) {
  if (from.ended) return;
  if (!from.registered() || IsRegistration(frame) || IsRegistrationInOtherOrder(frame)) {
    return bus_.CutOff(from, "no memory to register it");
  }
  bus_.log.PrintOf(from.charge.holder(), "%s: a message of type 0x%x refused: no memory", from.Label().c_str(),
                   frame.type());
  delivery_.DropUndelivered(from, frame.bytes, frame.destination);
}

void Router::RouteFrame(Client &from, Frame &frame) {
  if (from.isUnknownBoard()) return IntroduceBoard(bus_, from, frame);
  ++from.counters.in;
  ++bus_.counters.in;
  from.counters.inBytes += frame.bytes.size();
  bus_.counters.inBytes += frame.bytes.size();
  if (IsRegistration(frame)) return requests_.Register(from, frame);
  if (!from.registered() && IsRegistrationInOtherOrder(frame)) {
    return requests_.RegisterInOtherOrder(from, ConvertedRegistration(frame).frame);
  }
  if (!from.registered()) return bus_.CutOff(from, "it sent a message before it registered");
  frame.SetSource(from.name);
  from.lastTarget = 0;
  if (frame.bodyInFile() && !files_.Check(from, frame)) return;
  if (!IsEvent(frame) && !frame.destination.empty()) {
    return ForwardTo(from, bus_.names.Oldest(frame.destination), frame);
  }
  if (!Serve(from, frame)) return RouteUnnamed(from, frame);
  from.flows.Count(0, frame.type());
}

// False if the message is not for the server itself.
bool Router::Serve(Client &from, const Frame &frame) {
  if (IsEvent(frame)) {
    TakeEvent(from, frame);
    return true;
  }
  if (!IsControl(frame.type())) return requests_.Handle(from, frame);
  control_.Handle(from, frame);
  return true;
}

void Router::RouteUnnamed(Client &from, const Frame &frame) {
  if (IsRestful(frame.type())) return ForwardTo(from, RestfulTarget(frame), frame);
  ForwardTo(from, bus_.names.Oldest(bus_.settings.RouteOf(frame.type())), frame);
}

void Router::ForwardTo(Client &from, Client *to, const Frame &frame) {
  // A daemon on another board cannot read this one's files.
  if (to == nullptr || (frame.bodyInFile() && !to->peer.local) || !permission_.MaySend(from, *to, frame.type())) {
    return delivery_.DropUndelivered(from, frame.bytes, frame.destination);
  }
  frame.bodyInFile() ? files_.Forward(from, *to, frame) : delivery_.Forward(from, *to, frame);
}

void Router::TakeEvent(Client &from, const Frame &frame) {
  if (permission_.MayPublish(from, frame.type())) return PublishEvent(from, frame);
  delivery_.DropUndelivered(from, frame.bytes, frame.destination);
}

void Router::PublishEvent(Client &from, const Frame &frame) {
  delivery_.FlushRun();
  CollectSubscribers(frame);
  // All may have been served before a crash.
  if (subscribers_.empty() && bus_.journal.turn().servedUpTo > 0) return;
  if (subscribers_.empty()) delivery_.CopyUndelivered(frame);
  if (frame.bodyInFile()) return files_.Publish(from, frame, subscribers_);
  for (Client *subscriber : subscribers_) delivery_.SendEvent(*subscriber, frame.bytes);
}

void Router::CollectSubscribers(const Frame &frame) {
  const size_t bit = frame.type() - ZOR_MSG_EVENT_FIRST;
  subscribers_.clear();
  const uint64_t servedUpTo = bus_.journal.turn().servedUpTo;
  for (Client &client : bus_.clients) {
    if (client.place() <= servedUpTo) continue;
    if (client.ended || client.deaf || !client.registered() || (frame.bodyInFile() && !client.peer.local)) continue;
    const bool named = bus_.subscriptions.IsWanted(client.name, bit) && bus_.names.Oldest(client.name) == &client;
    if (named || Wants(client.events, bit)) subscribers_.push_back(&client);
  }
  std::ranges::sort(subscribers_, {}, &Client::place);
}

Client *Router::RestfulTarget(const Frame &frame) {
  std::vector<std::byte> content;
  std::span<const std::byte> body = frame.body();
  if (frame.bodyInFile()) {
    content = files_.Read(ZOR_MSG_RESTFUL_HEAD_SIZE).value_or(std::vector<std::byte>());
    body = content;
  }
  if (body.size() < ZOR_MSG_RESTFUL_HEAD_SIZE) return nullptr;
  const auto prefix = TextOf(body.subspan(offsetof(ZOR_MSG_RESTFUL_HEAD, prefix), ZOR_MSG_RESTFUL_NAME_SIZE));
  const auto name = TextOf(body.subspan(offsetof(ZOR_MSG_RESTFUL_HEAD, name), ZOR_MSG_RESTFUL_NAME_SIZE));
  if (prefix.size() == ZOR_MSG_RESTFUL_NAME_SIZE || name.size() == ZOR_MSG_RESTFUL_NAME_SIZE) return nullptr;
  return bus_.patterns.Find(prefix, name);
}

}  // namespace zor::msgsvr
