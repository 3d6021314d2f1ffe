// How a received message finds its handler, and what becomes of what a handler throws.
#ifndef ZOR_CPP_DISPATCH_HPP
#define ZOR_CPP_DISPATCH_HPP

#include <zor/cpp/core.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace zor {
inline namespace face {
namespace detail {

inline void Core::Dispatch(ZOR_MSG_HEAD &head, bool isOwnRequest) {
  if (Current() != this) return;
  const std::uint32_t type = head.type & ZOR_MSG_TYPE_MASK;
  if (!isOwnRequest && (TakeReply(head) || calls_.TakeLate(head))) return;
  if (head.source[0] == '\0' && TakeNotice(head, type)) return;
  if (IsEvent(type)) {
    RunSubscriptions(head, type);
  } else if (const Entries *const handlers = handlers_.Find(type)) {
    return RunHandlers(head, *handlers);
  }
  ZOR_MSG_DefaultMsgProc(&head, 0);
}

inline bool Core::TakeReply(const ZOR_MSG_HEAD &head) {
  const auto sequence = calls_.Match(head, &Awaited::IsReply);
  if (!sequence) return false;
  Block copy(ZOR_MSG_Dup(&head));
  Complete(*sequence, copy == nullptr ? Error(ZOR_E_NO_MEMORY) : Judge(Reply(std::move(copy))));
  return true;
}

inline bool Core::TakeNotice(const ZOR_MSG_HEAD &head, std::uint32_t type) {
  if (type == ZOR_MSG_SEND_FAILED_NOTICE) {
    const auto sequence = calls_.Match(head, &Awaited::IsNotice);
    if (!sequence) return false;
    Complete(*sequence, Error(ZOR_E_PEER_GONE));
    return true;
  }
  if (type == ZOR_MSG_CONTROL_GAP) {
    if (const auto gap = GapOf(BodyOf(head)))
      ForEach<GapHandler>(gaps_, [&](const GapHandler &each) { each.run(*gap); });
    return true;
  }
  return type == ZOR_MSG_CONTROL_GAPS;  // that it was granted
}

inline void Core::RunHandlers(ZOR_MSG_HEAD &head, const Entries &handlers) {
  if (handlers.size() != 1) {
    return ForEach<MessageHandler>(handlers, [&](const MessageHandler &each) { RunOne(head, each); });
  }
  const std::shared_ptr<Entry> only = handlers.front();
  ++depth_;
  RunOne(head, static_cast<const MessageHandler &>(*only));
  --depth_;
}

inline void Core::RunOne(const ZOR_MSG_HEAD &head, const MessageHandler &handler) noexcept {
  Exchange exchange(*this, head, handler.isRequest);
  const auto error = Guard([&] { handler.run(exchange); });
  if (error) Settle(exchange, *error);
}

inline void Core::RunSubscriptions(const ZOR_MSG_HEAD &head, std::uint32_t type) {
  Entries present;
  for (const std::uint32_t wanted : {type, ZOR_EVT_ALL}) {
    const Entries *const some = subscriptions_.Find(wanted);
    for (std::size_t i = 0; some != nullptr && i < some->size(); ++i) present.push_back((*some)[i]);
  }
  if (present.empty()) return;
  RunCallback([&] {
    const Event event(head);
    ForEach<Subscription>(present, [&](const Subscription &each) {
      if (each.Wants(event)) each.run(event);
    });
  });
}

inline void Core::Settle(Exchange &exchange, const Error &error) noexcept {
  if (exchange.done()) return Report(error);
  exchange.SetDone();
  const auto failure =
      Guard([&] { Check(SendReply(ReplyTo(exchange.request()), ErrorContent(error)), "error reply"); });
  if (failure) Report(*failure);
}

inline std::string Core::Describe() const {
  Json handles = Json::array();
  for (const auto &row : handlers_.rows()) {
    for (const auto &entry : row.entries) {
      const auto &handler = static_cast<const MessageHandler &>(*entry);
      if (handler.isBuiltIn) continue;
      Json handled{{"type", row.type}, {"kind", handler.isRequest ? "request" : "oneway"}};
      if (handler.name != nullptr) handled.set("name", handler.name);
      handles.push(std::move(handled));
    }
  }
  Json events = Json::array();
  for (const auto &row : subscriptions_.rows()) events.push(Json{{"type", row.type}});
  const Json all{{"name", name_},
                 {"face", "c++"},
                 {"pid", static_cast<std::int64_t>(::getpid())},
                 {"handles", std::move(handles)},
                 {"events", std::move(events)}};
  return all.dump();
}

inline void Core::AddBuiltIns() {
  AddBuiltIn(ZOR_MSG_INTROSPECT, [](Exchange &exchange) {
    exchange.SetDone();
    Check(SendReply(ReplyTo(exchange.request()), exchange.core().Describe()), "introspection");
  });
  if (!options_.safe_exit) return;
  AddBuiltIn(ZOR_MSG_SAFE_EXIT, [](Exchange &exchange) {
    exchange.SetDone();
    exchange.core().Stop(0);
    Check(SendReply(ReplyTo(exchange.request()), Content(0)), "safe exit");
  });
}

inline void Core::OnLinkEvent(std::uint32_t event) {
  Drain();
  if (event == ZOR_MSG_LINK_REJOINED && !gaps_.empty()) AskForGaps(1);
  ForEach<LinkHandler>(links_, [&](const LinkHandler &each) {
    if (each.event == event) each.run();
  });
  if (event != ZOR_MSG_LINK_LOST) return;
  calls_.ForgetLate();
  for (const std::uint32_t sequence : calls_.All()) Complete(sequence, Error(ZOR_E_PEER_GONE));
}

}  // namespace detail
}  // namespace face
}  // namespace zor

#endif
