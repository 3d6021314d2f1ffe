#include "msgsvr/permission.h"

#include <algorithm>

namespace zor::msgsvr {

using access::Verb;

// Of several holders, one of another user counts.
bool Permission::MayOwn(const Client &client, const AppName &name) {
  if (IsOpen()) return true;
  const access::Identity &own = bus_.guard.IdentityOf(client.admission.subject());
  const access::Identity *holder = nullptr;
  for (const Client *each : bus_.names.ClientsNamed(name)) {
    if (each == &client) continue;
    const access::Identity &other = bus_.guard.IdentityOf(each->admission.subject());
    if (holder == nullptr || !other.IsSameOwner(own)) holder = &other;
  }
  return Ask(client, {Verb::kOwn, 0, name.text(), holder});
}

// Replies may travel in files, which other boards cannot read.
bool Permission::MayControl(const Client &from, uint32_t type) {
  if (!from.peer.local) return false;
  const access::Action action = {Verb::kControl, type, {}};
  const access::Guard::Subject subject = from.admission.subject();
  const auto [granted, answer] = access::AskControl(bus_.guard, subject, from.peer.uid, action);
  access::LogRefusal(bus_.log, from.charge.holder(), from.Label().c_str(), bus_.guard, subject, action, answer);
  return granted;
}

bool Permission::Ask(const Client &from, const access::Action &action) {
  const access::Guard::Subject subject = from.admission.subject();
  const access::Guard::Answer answer = bus_.guard.Ask(subject, action);
  if (!answer.verdict.allowed) {
    access::LogRefusal(bus_.log, from.charge.holder(), from.Label().c_str(), bus_.guard, subject, action, answer);
  }
  return answer.passes;
}

// A daemon takes a message of an event's type for that event, even if it was sent to it alone.
bool Permission::AskSend(const Client &from, const Client &to, uint32_t type) {
  if (IsEventType(type) && !MayPublish(from, type)) return false;
  return to.pending.HasRequest(from.name, type) || Ask(from, {Verb::kSend, type, to.name.text()});
}

bool Permission::AskRequest(const Client &from, const Frame &frame, std::span<const std::byte> body) {
  const AppName name(TextOf(body));
  const bool ofItself = name.empty() || name == from.name;
  const auto event = EventBit(frame.head.data);
  const auto eventType = static_cast<uint32_t>(ZOR_MSG_EVENT_FIRST + event.value_or(0));
  switch (frame.type()) {
    case ZOR_MSG_SUBSCRIBE_EVENT:
      return !event || Ask(from, {Verb::kSubscribe, eventType, ofItself ? std::string_view() : name.text()});
    case ZOR_MSG_UNSUBSCRIBE_EVENT:
      return !event || ofItself || Ask(from, {Verb::kSubscribe, eventType, name.text()});
    case ZOR_MSG_SAFE_EXIT:
      return ofItself || Ask(from, {Verb::kSend, frame.type(), name.text()});
    case ZOR_MSG_SYNC_POST:
      return Ask(from, {Verb::kPost, 0, name.text()});
    case ZOR_MSG_RESTFUL_REGISTER:
      return AskPatterns(from, TextOf(body));
    default:
      return true;
  }
}

// The list is registered as a whole, or not. An empty pattern gets what has an empty prefix, so that everything about
// the root concerns it.
bool Permission::AskPatterns(const Client &from, std::string_view patternList) {
  for (;;) {
    const size_t bar = patternList.find('|');
    const std::string_view pattern = patternList.substr(0, bar);
    if (!Ask(from, {Verb::kServe, 0, pattern.empty() ? "/**" : pattern})) return false;
    if (bar == std::string_view::npos) return true;
    patternList.remove_prefix(bar + 1);
  }
}

}  // namespace zor::msgsvr
