// The connection behind a Bus: where received messages go, calls that wait for their reply, and who is registered.
//
// The bus has a message procedure of its own, through which every message that the loop receives comes; its handlers
// are looked up by type, and what none of them takes goes to the C library's handlers. A reply is recognised by its
// type, its sequence number and its sender. A call that blocks reads the socket itself, as the C library's do, and sets
// aside what is not its reply; that is dispatched before the loop waits again. Calls that timed out are remembered, so
// that their late replies are dropped and not taken for requests.
#ifndef ZOR_CPP_CORE_HPP
#define ZOR_CPP_CORE_HPP

#include <zor/introspect_wire.h>
#include <zor/cpp/entries.hpp>
#include <zor/cpp/fd.hpp>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zor {
inline namespace face {

/// How a Bus behaves.
struct Options {
  /// Connect again when the connection to the server ends.
  bool rejoin = true;
  /// Reply to a request to exit (ZOR_MSG_SAFE_EXIT) and stop the loop with exit status 0.
  bool safe_exit = true;
  /// How long calls wait that name no time-out of their own; 0: without limit.
  std::chrono::milliseconds timeout = std::chrono::seconds(5);
};

namespace detail {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;
using ReplyCallback = Function<void(Result<Reply>)>;

/// Where a reply goes.
struct ReplyTo {
  explicit ReplyTo(const ZOR_MSG_HEAD &request) noexcept
      : type(request.type & ZOR_MSG_TYPE_MASK), sequence(request.sequence) {
    const std::string_view source = NameOf(request.source);
    std::memcpy(destination, source.data(), source.size());
  }
  std::uint32_t type;
  std::uint32_t sequence;
  char destination[ZOR_MSG_NAME_SIZE + 1] = {};
};

inline std::uint32_t SendContent(const char *destination, std::uint32_t type, const Content &content,
                                 std::uint32_t sequence) {
  const std::string_view body = content.body();
  if (body.size() > UINT32_MAX) return ZOR_E_NO_MEMORY;
  return ZOR_MSG_SendMsgDataWithDataSeq(destination, type, body.empty() ? nullptr : body.data(),
                                        static_cast<std::uint32_t>(body.size()), content.word(), sequence);
}

inline std::uint32_t SendReply(const ReplyTo &to, const Content &content) {
  return SendContent(to.destination, to.type, content, to.sequence);
}

/// The reply that stands for an error.
inline std::pair<std::uint32_t, std::string> ErrorContent(const Error &error) {
  const bool isStatus = error.status() >= 0x10000 && error.status() <= 0x1FFFF;
  return {isStatus ? error.status() : ZOR_E_IO, Json{{"error", error.text()}}.dump()};
}

class Core final : public std::enable_shared_from_this<Core> {
 public:
  explicit Core(const Options &options) noexcept : options_(options) {}
  Core(const Core &) = delete;
  Core &operator=(const Core &) = delete;
  ~Core() { DropTasks(); }

  std::uint32_t Join(const std::string &name) {
    if (Current() != nullptr || g_stMsgCtx.socketFd >= 0) return ZOR_E_BUSY;
    if (const std::uint32_t status = ZOR_MSG_Init(name.c_str()); status != ZOR_OK) return status;
    if (g_stMsgCtx.socketFd < 0) return ZOR_E_REFUSED;
    Current() = this;
    name_ = NameOf(g_stMsgCtx.appName);
    ZOR_MSG_RegisterMsgProc(OnMessage);
    AddBuiltIns();
    std::uint32_t status = ZOR_MSG_SetLinkProc(OnLink, nullptr);
    if (status == ZOR_OK && options_.rejoin) status = ZOR_MSG_EnableRejoin(nullptr);
    return status;
  }

  /// Ends everything and leaves the bus. No callback is called any more.
  void Leave() {
    if (Current() != this) return;
    errorHandler_.reset();
    if (depth_ == 0) DropTasks();  // while their clients can still be told
    Current() = nullptr;
    pending_.clear();
    setAside_.clear();
    for (const auto &entry : std::exchange(entries_, {})) entry.second->Abandon();
    handlers_.clear();
    subscriptions_.clear();
    links_.clear();
    gaps_.clear();
    ZOR_UTIL_TimerDel(std::exchange(callTimer_, nullptr));
    if (UvIdle *const hook = std::exchange(drainHook_, nullptr)) ZOR_UV_IdleStop(hook);
    ZOR_MSG_Destroy();
  }

  const Options &options() const noexcept { return options_; }
  const std::string &name() const noexcept { return name_; }

  // --- errors ---

  void SetErrorHandler(Function<void(const Error &)> handler) {
    errorHandler_ = std::make_shared<Function<void(const Error &)>>(std::move(handler));
  }

  /// For errors that have no caller to go to.
  void Report(const Error &error) noexcept {
    const auto handler = errorHandler_;
    if (handler != nullptr && *handler) {
      if (!Guard([&] { (*handler)(error); })) return;
    }
    std::fprintf(stderr, "%s: %s\n", name_.c_str(), error.what());
  }

  /// Runs a callback of the user's that nobody waits for.
  template <typename F>
  void RunCallback(F &&callback) noexcept {
    const auto keep = shared_from_this();
    ++depth_;
    const auto error = Guard(std::forward<F>(callback));
    --depth_;
    if (error) Report(*error);
  }

  // --- registration ---

  template <typename E>
  Handle Own(const std::shared_ptr<E> &entry) {
    entry->Begin(*this);
    entries_.emplace(entry.get(), entry);
    return Handle(entry);
  }
  void Disown(const Entry &entry) { entries_.erase(&entry); }

  /// Requests have one handler, one-way messages any number.
  Handle Add(std::shared_ptr<MessageHandler> handler) {
    auto &handlers = handlers_[handler->type];
    if (!handlers.empty() && handlers.front()->isBuiltIn) handlers.clear();
    if (!handlers.empty() && (handler->isRequest || handlers.front()->isRequest)) {
      Argument("the type has a handler already").raise();
    }
    handlers.push_back(handler);
    return Own(handler);
  }
  void Remove(MessageHandler &handler) {
    RemoveFrom(handlers_, handler);
    Disown(handler);
  }

  /// The first subscription of a type asks the server for it, the last that ends takes that back.
  Result<Handle> Add(std::shared_ptr<Subscription> subscription) {
    auto &sameType = subscriptions_[subscription->type];
    if (sameType.empty()) {
      const std::uint32_t status = ZOR_MSG_SubscribeEventForOtherApp(subscription->type, name_.c_str());
      if (status != ZOR_OK) {
        subscriptions_.erase(subscription->type);
        return Error(status);
      }
    }
    sameType.push_back(subscription);
    return Own(subscription);
  }
  void Remove(Subscription &subscription) {
    const std::uint32_t type = subscription.type;
    RemoveFrom(subscriptions_, subscription);
    if (subscriptions_.count(type) == 0) ZOR_MSG_UnSubscribeEventForOtherApp(type, name_.c_str());
    Disown(subscription);
  }

  Handle Add(std::shared_ptr<LinkHandler> handler) {
    links_.push_back(handler);
    return Own(handler);
  }
  void Remove(LinkHandler &handler) {
    Erase(links_, handler);
    Disown(handler);
  }

  Handle Add(std::shared_ptr<GapHandler> handler) {
    gaps_.push_back(handler);
    if (gaps_.size() == 1) AskForGaps(1);
    return Own(handler);
  }
  void Remove(GapHandler &handler) {
    Erase(gaps_, handler);
    if (gaps_.empty()) AskForGaps(0);
    Disown(handler);
  }

  // --- event types of modules ---

  void DeclareModule(std::string_view module, std::uint32_t type) { modules_[std::string(module)] = type; }

  Result<std::uint32_t> TypeOf(std::string_view module) const {
    const std::string name(module);
    if (const auto found = modules_.find(name); found != modules_.end()) return found->second;
    const std::uint32_t type = ZOR_EVT_GetMsgTypeByEventModuleName(name.c_str());
    if (type == ZOR_EVT_ALL) return Error(ZOR_E_ARGUMENT, "no event type is known for module \"" + name + "\"");
    return type;
  }

  std::string ModuleOf(std::uint32_t type) const {
    for (const auto &module : modules_) {
      if (module.second == type) return module.first;
    }
    const char *const name = ZOR_EVT_GetEventModuleNameByEventType(type);
    return name == nullptr ? "" : name;
  }

  // --- calls ---

  /// Sends a request and waits for its reply. Handlers do not run meanwhile, but for a request to this process itself.
  Result<Reply> Call(std::string_view destination, std::uint32_t type, const Content &content, Milliseconds timeout) {
    const Wanted wanted = NewRequest(destination, type);
    const Clock::time_point start = Clock::now();
    if (const std::uint32_t status = SendRequest(wanted, content, false); status != ZOR_OK) return Error(status);
    std::uint32_t left = ToWait(timeout);
    while (true) {
      ZOR_MSG_HEAD *received = nullptr;
      const std::uint32_t status = ZOR_MSG_Recv(g_stMsgCtx.socketFd, &received, left);
      Block message(received);
      if (status == ZOR_E_TIMEOUT) return GiveUp(wanted);
      if (status != ZOR_OK) return Error(status);
      if (wanted.IsReply(*message)) return Judge(Reply(std::move(message)));
      if (wanted.IsNotice(*message)) return Error(ZOR_E_PEER_GONE);
      SetAside(std::move(message), false);
      if (left == 0) continue;
      const auto elapsed = std::chrono::duration_cast<Milliseconds>(Clock::now() - start).count();
      if (elapsed >= timeout.count()) return GiveUp(wanted);
      left = ToWait(Milliseconds(timeout.count() - elapsed));
    }
  }

  /// Sends a request whose callback the loop calls with the reply or the error. Returns its number for Cancel().
  Result<std::uint32_t> CallAsync(std::string_view destination, std::uint32_t type, const Content &content,
                                  Milliseconds timeout, ReplyCallback callback) {
    const Wanted wanted = NewRequest(destination, type);
    if (const std::uint32_t status = SendRequest(wanted, content, true); status != ZOR_OK) return Error(status);
    const bool limited = ToWait(timeout) != 0;
    const auto deadline = limited ? Clock::now() + timeout : Clock::time_point::max();
    pending_.emplace(wanted.sequence, Pending{wanted, deadline, std::move(callback)});
    if (deadline < nextDeadline_) ArmCallTimer(deadline);
    return wanted.sequence;
  }

  /// The callback is not called any more; a reply that comes is dropped.
  void Cancel(std::uint32_t sequence) {
    const auto found = pending_.find(sequence);
    if (found == pending_.end()) return;
    Remember(found->second.wanted);
    pending_.erase(found);
  }

  // --- coroutines, seen from here as frames that are to be destroyed when the bus goes ---

  void OwnTask(void *frame, void (*destroy)(void *)) { tasks_.emplace(frame, destroy); }
  void DisownTask(void *frame) { tasks_.erase(frame); }

 private:
  struct Wanted {
    std::uint32_t type = 0;
    std::uint32_t sequence = 0;
    char destination[ZOR_MSG_NAME_SIZE] = {};

    bool Matches(const ZOR_MSG_HEAD &head) const noexcept {
      return head.sequence == sequence && (head.type & ZOR_MSG_TYPE_MASK) == type;
    }
    bool IsReply(const ZOR_MSG_HEAD &head) const noexcept {
      return Matches(head) && NameOf(head.source) == NameOf(destination);
    }
    bool IsNotice(const ZOR_MSG_HEAD &head) const noexcept {
      return (head.type & ZOR_MSG_TYPE_MASK) == ZOR_MSG_SEND_FAILED_NOTICE && head.source[0] == '\0' &&
             head.sequence == sequence && (head.data & ZOR_MSG_TYPE_MASK) == type;
    }
  };
  struct Pending {
    Wanted wanted;
    Clock::time_point deadline;
    ReplyCallback callback;
  };
  struct Waiting {
    Block message;
    bool isOwnRequest;  // from this process to itself: never a reply
  };

  static constexpr std::size_t kLateMax = 256;

  static Core *&Current() noexcept {
    static Core *current = nullptr;
    return current;
  }

  static std::uint32_t ToWait(Milliseconds timeout) noexcept {
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(timeout.count(), 0, 0x7fffffff));
  }

  template <typename Map, typename E>
  static void RemoveFrom(Map &map, const E &entry) {
    const auto found = map.find(entry.type);
    if (found == map.end()) return;
    Erase(found->second, entry);
    if (found->second.empty()) map.erase(found);
  }
  template <typename E>
  static void Erase(std::vector<std::shared_ptr<E>> &entries, const E &entry) {
    entries.erase(
        std::remove_if(entries.begin(), entries.end(), [&](const auto &each) { return each.get() == &entry; }),
        entries.end());
  }

  // --- calls ---

  static Wanted NewRequest(std::string_view destination, std::uint32_t type) {
    ZOR_MSG_HEAD numbered;
    ZOR_MSG_SimpleBuilder(&numbered, nullptr, type, 0);
    Wanted wanted;
    wanted.type = type & ZOR_MSG_TYPE_MASK;
    wanted.sequence = numbered.sequence;
    destination = CutName(destination);
    std::memcpy(wanted.destination, destination.data(), destination.size());
    return wanted;
  }

  // A request to oneself does not go through the server: a call that blocks could not dispatch it. Its handler runs
  // here, or in the loop's next turn.
  std::uint32_t SendRequest(const Wanted &wanted, const Content &content, bool later) {
    if (wanted.destination[0] == '\0' || name_ != wanted.destination) {
      return SendContent(wanted.destination, wanted.type, content, wanted.sequence);
    }
    const std::string_view body = content.body();
    if (body.size() > ZOR_MSG_DISPATCH_BODY_MAX) return ZOR_E_NO_MEMORY;
    void *const place = ZOR_MSG_GetMsgBlock(static_cast<std::uint32_t>(body.size()));
    if (place == nullptr) return ZOR_E_NO_MEMORY;
    Block message(ZOR_MSG_GetMsgHead(place));
    message->type = wanted.type;
    message->sequence = wanted.sequence;
    message->data = content.word();
    std::memcpy(message->source, wanted.destination, sizeof message->source);
    std::memcpy(message->destination, wanted.destination, sizeof message->destination);
    if (!body.empty()) std::memcpy(place, body.data(), body.size());
    if (later) {
      SetAside(std::move(message), true);
    } else {
      Dispatch(*message, true);
    }
    return ZOR_OK;
  }

  static Result<Reply> Judge(Reply reply) {
    if (auto error = ErrorOf(reply)) return std::move(*error);
    return reply;
  }

  Error GiveUp(const Wanted &wanted) {
    Remember(wanted);
    return Error(ZOR_E_TIMEOUT);
  }
  void Remember(const Wanted &wanted) {
    if (late_.size() == kLateMax) late_.pop_front();
    late_.push_back(wanted);
  }

  void Complete(std::uint32_t sequence, Result<Reply> result) {
    const auto found = pending_.find(sequence);
    if (found == pending_.end()) return;
    const ReplyCallback callback = std::move(found->second.callback);
    pending_.erase(found);
    RunCallback([&] { callback(std::move(result)); });
  }

  void ArmCallTimer(Clock::time_point deadline) {
    nextDeadline_ = deadline;
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now()).count() + 1;
    const std::uint32_t ms = std::max<std::uint32_t>(ToWait(Milliseconds(left)), 1);
    if (callTimer_ == nullptr) {
      callTimer_ = ZOR_UTIL_TimerAdd(ms, 0, OnCallTimer, nullptr);
    } else {
      ZOR_UTIL_TimerChgPeriod(callTimer_, ms);
    }
  }

  // Replies that have been received are in time.
  static void OnCallTimer(void *) {
    Core *const core = Current();
    if (core == nullptr) return;
    const auto keep = core->shared_from_this();
    core->Drain();
    core->ExpireCalls();
  }

  void ExpireCalls() {
    const Clock::time_point now = Clock::now();
    std::vector<std::uint32_t> expired;
    auto next = Clock::time_point::max();
    for (const auto &call : pending_) {
      if (call.second.deadline <= now) {
        expired.push_back(call.first);
      } else {
        next = std::min(next, call.second.deadline);
      }
    }
    nextDeadline_ = next;
    if (callTimer_ == nullptr) return;
    if (next == Clock::time_point::max()) {
      ZOR_UTIL_TimerChgPeriod(callTimer_, 0);
    } else {
      ArmCallTimer(next);
    }
    for (const std::uint32_t sequence : expired) {
      if (const auto found = pending_.find(sequence); found != pending_.end()) Remember(found->second.wanted);
      Complete(sequence, Error(ZOR_E_TIMEOUT));
    }
  }

  // --- what was received while a call was waiting ---

  void SetAside(Block message, bool isOwnRequest) {
    setAside_.push_back({std::move(message), isOwnRequest});
    if (drainHook_ == nullptr) drainHook_ = ZOR_UV_IdleStart(nullptr, OnTurn);
    const UvTime atOnce = {0, 0};
    ZOR_UV_LoopUpdateSelectTimeout(nullptr, &atOnce);
  }
  static void OnTurn(UvIdle *, std::uint32_t) {
    if (Current() == nullptr || Current()->setAside_.empty()) return;
    const auto keep = Current()->shared_from_this();
    keep->Drain();
  }
  void Drain() {
    while (!setAside_.empty()) {
      const Waiting next = std::move(setAside_.front());
      setAside_.pop_front();
      Dispatch(*next.message, next.isOwnRequest);
    }
  }

  // --- dispatch ---

  static void OnMessage(ZOR_MSG_HEAD *message, std::uint32_t) {
    if (Current() == nullptr) return;
    const auto keep = Current()->shared_from_this();
    if (!keep->setAside_.empty()) keep->Drain();
    keep->Dispatch(*message, false);
  }

  void Dispatch(ZOR_MSG_HEAD &head, bool isOwnRequest) {
    if (Current() != this) return;
    const std::uint32_t type = head.type & ZOR_MSG_TYPE_MASK;
    if (!isOwnRequest && (TakeReply(head) || IsLate(head))) return;
    if (head.source[0] == '\0' && TakeNotice(head, type)) return;
    if (IsEvent(type)) {
      RunSubscriptions(head, type);
    } else if (const auto found = handlers_.find(type); found != handlers_.end()) {
      return RunHandlers(head, found->second);
    }
    ZOR_MSG_DefaultMsgProc(&head, 0);
  }

  bool TakeReply(const ZOR_MSG_HEAD &head) {
    if (pending_.empty()) return false;
    const auto found = pending_.find(head.sequence);
    if (found == pending_.end() || !found->second.wanted.IsReply(head)) return false;
    Block copy(ZOR_MSG_Dup(&head));
    Complete(head.sequence, copy == nullptr ? Error(ZOR_E_NO_MEMORY) : Judge(Reply(std::move(copy))));
    return true;
  }

  bool IsLate(const ZOR_MSG_HEAD &head) {
    const auto found = std::find_if(late_.begin(), late_.end(), [&](const Wanted &each) { return each.IsReply(head); });
    if (found == late_.end()) return false;
    late_.erase(found);
    return true;
  }

  bool TakeNotice(const ZOR_MSG_HEAD &head, std::uint32_t type) {
    if (type == ZOR_MSG_SEND_FAILED_NOTICE) {
      const auto found = pending_.find(head.sequence);
      if (found != pending_.end() && found->second.wanted.IsNotice(head)) {
        Complete(head.sequence, Error(ZOR_E_PEER_GONE));
        return true;
      }
    } else if (type == ZOR_MSG_CONTROL_GAP) {
      if (const auto gap = GapOf(BodyOf(head))) ForEach(gaps_, [&](const GapHandler &each) { each.run(*gap); });
      return true;
    } else if (type == ZOR_MSG_CONTROL_GAPS) {
      return true;  // that it was granted
    }
    return false;
  }

  // A handler may end any of them, itself included, and add others, which are not called for this message.
  template <typename E, typename F>
  void ForEach(const std::vector<std::shared_ptr<E>> &entries, F &&run) {
    const std::vector<std::shared_ptr<E>> present = entries;
    for (const auto &entry : present) {
      if (entry->live()) RunCallback([&] { run(*entry); });
    }
  }

  void RunHandlers(ZOR_MSG_HEAD &head, const std::vector<std::shared_ptr<MessageHandler>> &handlers) {
    if (handlers.size() != 1) return ForEach(handlers, [&](const MessageHandler &each) { RunOne(head, each); });
    const std::shared_ptr<MessageHandler> only = handlers.front();
    ++depth_;
    RunOne(head, *only);
    --depth_;
  }

  void RunOne(const ZOR_MSG_HEAD &head, const MessageHandler &handler) noexcept {
    Exchange exchange(*this, head, handler.isRequest);
    const auto error = Guard([&] { handler.run(exchange); });
    if (error) Settle(exchange, *error);
  }

  void RunSubscriptions(const ZOR_MSG_HEAD &head, std::uint32_t type) {
    const auto all = subscriptions_.find(ZOR_EVT_ALL);
    const auto some = subscriptions_.find(type);
    if (all == subscriptions_.end() && some == subscriptions_.end()) return;
    std::vector<std::shared_ptr<Subscription>> present;
    if (some != subscriptions_.end()) present = some->second;
    if (all != subscriptions_.end()) present.insert(present.end(), all->second.begin(), all->second.end());
    RunCallback([&] {
      const Event event(head);
      ForEach(present, [&](const Subscription &each) {
        if (each.Wants(event)) each.run(event);
      });
    });
  }

 public:
  /// What becomes of an error in a handler: the reply of a request, else a report.
  void Settle(Exchange &exchange, const Error &error) noexcept {
    if (exchange.done()) return Report(error);
    exchange.SetDone();
    const auto failure =
        Guard([&] { Check(SendReply(ReplyTo(exchange.request()), ErrorContent(error)), "error reply"); });
    if (failure) Report(*failure);
  }

  std::string Describe() const {
    Json handles = Json::array();
    for (const auto &type : handlers_) {
      for (const auto &handler : type.second) {
        if (handler->isBuiltIn) continue;
        Json row{{"type", type.first}, {"kind", handler->isRequest ? "request" : "oneway"}};
        if (handler->name != nullptr) row.set("name", handler->name);
        handles.push(std::move(row));
      }
    }
    Json events = Json::array();
    for (const auto &type : subscriptions_) events.push(Json{{"type", type.first}});
    const Json all{{"name", name_},
                   {"face", "c++"},
                   {"pid", static_cast<std::int64_t>(::getpid())},
                   {"handles", std::move(handles)},
                   {"events", std::move(events)}};
    return all.dump();
  }

  void Stop(int exitStatus) {
    exitStatus_ = exitStatus;
    ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  }

  int Run() {
    exitStatus_ = 0;
    Check(ZOR_UV_LoopRun(nullptr, 0), "the loop");
    return exitStatus_;
  }

 private:
  void AddBuiltIn(std::uint32_t type, Function<void(Exchange &)> run) {
    auto handler = std::make_shared<MessageHandler>();
    handler->type = type;
    handler->isRequest = true;
    handler->isBuiltIn = true;
    handler->run = std::move(run);
    Add(std::move(handler));
  }

  void AddBuiltIns() {
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

  void AskForGaps(std::uint32_t on) {
    ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_CONTROL_GAPS, on);  // where the server is gone, rejoining asks again
  }

  // --- the connection ---

  static void OnLink(std::uint32_t event, void *) {
    if (Current() == nullptr) return;
    const auto keep = Current()->shared_from_this();
    keep->OnLinkEvent(event);
  }

  void OnLinkEvent(std::uint32_t event) {
    Drain();
    if (event == ZOR_MSG_LINK_REJOINED && !gaps_.empty()) AskForGaps(1);
    ForEach(links_, [&](const LinkHandler &each) {
      if (each.event == event) each.run();
    });
    if (event != ZOR_MSG_LINK_LOST) return;
    late_.clear();
    std::vector<std::uint32_t> sequences;
    for (const auto &call : pending_) sequences.push_back(call.first);
    for (const std::uint32_t sequence : sequences) Complete(sequence, Error(ZOR_E_PEER_GONE));
  }

  void DropTasks() {
    while (!tasks_.empty()) {
      const auto task = *tasks_.begin();
      tasks_.erase(tasks_.begin());
      task.second(task.first);
    }
  }

  Options options_;
  std::string name_;
  int exitStatus_ = 0;
  int depth_ = 0;  // callbacks that are running
  std::unordered_map<std::uint32_t, std::vector<std::shared_ptr<MessageHandler>>> handlers_;
  std::unordered_map<std::uint32_t, std::vector<std::shared_ptr<Subscription>>> subscriptions_;
  std::vector<std::shared_ptr<LinkHandler>> links_;
  std::vector<std::shared_ptr<GapHandler>> gaps_;
  std::unordered_map<const Entry *, std::shared_ptr<Entry>> entries_;
  std::unordered_map<std::string, std::uint32_t> modules_;
  std::shared_ptr<Function<void(const Error &)>> errorHandler_;
  std::unordered_map<std::uint32_t, Pending> pending_;  // by sequence number
  std::deque<Wanted> late_;
  std::deque<Waiting> setAside_;
  Clock::time_point nextDeadline_ = Clock::time_point::max();
  UvTimer *callTimer_ = nullptr;
  UvIdle *drainHook_ = nullptr;
  std::unordered_map<void *, void (*)(void *)> tasks_;
};

inline void MessageHandler::Leave(Core &core) {
  core.Remove(*this);
}
inline void Subscription::Leave(Core &core) {
  core.Remove(*this);
}
inline void LinkHandler::Leave(Core &core) {
  core.Remove(*this);
}
inline void GapHandler::Leave(Core &core) {
  core.Remove(*this);
}
inline void Timer::Leave(Core &core) {
  Release();
  core.Disown(*this);
}
inline void Watch::Leave(Core &core) {
  Release();
  core.Disown(*this);
}

inline void Timer::OnTimer(void *data) {
  auto &entry = *static_cast<Timer *>(data);
  if (!entry.live()) return;
  const auto keep = entry.shared_from_this();
  Core &core = *entry.core();
  if (entry.once) {
    entry.timer = nullptr;  // the loop frees the record
    entry.End();
  }
  core.RunCallback([&] { entry.run(); });
}

inline void Watch::OnReady(UvIO *watcher, std::uint32_t event) {
  auto *const entry = static_cast<Watch *>(watcher->header.data);
  if (entry == nullptr || !entry->live()) return;
  const auto keep = entry->shared_from_this();
  entry->core()->RunCallback([&] { entry->run(event); });
}

}  // namespace detail
}  // namespace face
}  // namespace zor

#endif
