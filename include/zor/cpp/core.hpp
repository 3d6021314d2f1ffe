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
#include <zor/cpp/calls.hpp>
#include <zor/cpp/entries.hpp>
#include <zor/cpp/fd.hpp>
#include <zor/cpp/table.hpp>

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
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

/// A coroutine that the bus destroys if it goes first.
struct TaskLink : Link {
  void (*destroy)(TaskLink &) = nullptr;
};

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
    loop_ = g_stMsgCtx.watcher->io.header.loop;
    owner_ = ::getpid();
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
    if (::getpid() != owner_) ZOR_MSG_Destroy();  // a forked child says nothing on its parent's connection
    errorHandler_.reset();
    if (depth_ == 0) DropTasks();  // while their clients can still be told
    Current() = nullptr;
    calls_ = {};
    backlog_.Clear();
    while (!entries_.alone()) static_cast<Entry &>(entries_.next()).Abandon();
    handlers_.Clear();
    subscriptions_.Clear();
    links_.clear();
    gaps_.clear();
    ZOR_UTIL_TimerDel(std::exchange(callTimer_, nullptr));
    if (UvIdle *const hook = std::exchange(drainHook_, nullptr)) ZOR_UV_IdleStop(hook);
    ZOR_MSG_Destroy();
    if (runs_ > 0) ZOR_UV_LoopStop(loop_);  // nothing is left that could
  }

  const Options &options() const noexcept { return options_; }
  const std::string &name() const noexcept { return name_; }
  UvLoop *loop() const noexcept { return loop_; }

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
    entry->Begin(*this, entries_);
    return Handle(entry);
  }
  void Own(TaskLink &task) noexcept { tasks_.InsertBefore(task); }

  /// Requests have one handler, one-way messages any number.
  Handle Add(std::shared_ptr<MessageHandler> handler) {
    if (const Entries *const others = handlers_.Find(handler->type)) {
      const auto &first = static_cast<const MessageHandler &>(*others->front());
      if (first.isBuiltIn) {
        others->front()->End();
      } else if (handler->isRequest || first.isRequest) {
        Argument("the type has a handler already").raise();
      }
    }
    handlers_.Add(handler->type, handler);
    return Own(handler);
  }
  void Remove(const MessageHandler &handler) { handlers_.Remove(handler.type, handler); }

  /// The first subscription of a type asks the server for it, the last that ends takes that back.
  Result<Handle> Add(std::shared_ptr<Subscription> subscription) {
    const std::uint32_t type = subscription->type;
    if (subscriptions_.Find(type) == nullptr) {
      const std::uint32_t status = ZOR_MSG_SubscribeEventForOtherApp(type, name_.c_str());
      if (status != ZOR_OK) return Error(status);
    }
    subscriptions_.Add(type, subscription);
    return Own(subscription);
  }
  void Remove(const Subscription &subscription) {
    const std::uint32_t type = subscription.type;
    subscriptions_.Remove(type, subscription);
    if (subscriptions_.Find(type) == nullptr) ZOR_MSG_UnSubscribeEventForOtherApp(type, name_.c_str());
  }

  Handle Add(std::shared_ptr<LinkHandler> handler) {
    links_.push_back(handler);
    return Own(handler);
  }
  void Remove(const LinkHandler &handler) { EraseFrom(links_, handler); }

  Handle Add(std::shared_ptr<GapHandler> handler) {
    gaps_.push_back(handler);
    if (gaps_.size() == 1) AskForGaps(1);
    return Own(handler);
  }
  void Remove(const GapHandler &handler) {
    EraseFrom(gaps_, handler);
    if (gaps_.empty()) AskForGaps(0);
  }

  // --- event types of modules ---

  void DeclareModule(std::string_view module, std::uint32_t type) { modules_.set(module, type); }

  Result<std::uint32_t> TypeOf(std::string_view module) const {
    if (modules_.contains(module)) return static_cast<std::uint32_t>(modules_[module].integer());
    const std::string name(module);
    const std::uint32_t type = ZOR_EVT_GetMsgTypeByEventModuleName(name.c_str());
    if (type == ZOR_EVT_ALL) return Error(ZOR_E_ARGUMENT, "no event type is known for module \"" + name + "\"");
    return type;
  }

  std::string ModuleOf(std::uint32_t type) const {
    for (const JsonMember &module : modules_.members()) {
      if (module.value.integer() == type) return module.name;
    }
    const char *const name = ZOR_EVT_GetEventModuleNameByEventType(type);
    return name == nullptr ? "" : name;
  }

  // --- calls ---

  /// Sends a request and waits for its reply. Handlers do not run meanwhile, but for a request to this process itself.
  Result<Reply> Call(std::string_view destination, std::uint32_t type, const Content &content, Milliseconds timeout) {
    const auto keep = shared_from_this();  // a request to oneself is served here, and may end the bus
    const Awaited awaited(destination, type);
    const Clock::time_point start = Clock::now();
    if (const std::uint32_t status = SendRequest(awaited, content, false); status != ZOR_OK) return Error(status);
    std::uint32_t left = ToWait(timeout);
    std::uint32_t setAside = 0;
    while (true) {
      ZOR_MSG_HEAD *received = nullptr;
      const std::uint32_t status = ZOR_MSG_Recv(g_stMsgCtx.socketFd, &received, left);
      Block message(received);
      if (status == ZOR_E_TIMEOUT) return GiveUp(awaited);
      if (status != ZOR_OK) return Error(status);
      if (awaited.IsReply(*message)) return Judge(Reply(std::move(message)));
      if (awaited.IsNotice(*message)) return Error(ZOR_E_PEER_GONE);
      SetAside(std::move(message), false);
      if (++setAside == ZOR_MSG_SET_ASIDE_MAX) return GiveUp(awaited);
      if (left == 0) continue;
      const auto elapsed = std::chrono::duration_cast<Milliseconds>(Clock::now() - start).count();
      if (elapsed >= timeout.count()) return GiveUp(awaited);
      left = ToWait(Milliseconds(timeout.count() - elapsed));
    }
  }

  /// Sends a request whose callback the loop calls with the reply or the error. Returns its number for Cancel().
  Result<std::uint32_t> CallAsync(std::string_view destination, std::uint32_t type, const Content &content,
                                  Milliseconds timeout, ReplyCallback callback) {
    const Awaited awaited(destination, type);
    if (const std::uint32_t status = SendRequest(awaited, content, true); status != ZOR_OK) return Error(status);
    const bool limited = ToWait(timeout) != 0;
    const auto deadline = limited ? Clock::now() + timeout : Clock::time_point::max();
    calls_.Add(awaited, deadline, std::move(callback));
    if (deadline < nextDeadline_) ArmCallTimer(deadline);
    return awaited.sequence;
  }

  /// The callback is not called any more; a reply that comes is dropped.
  void Cancel(std::uint32_t sequence) { calls_.Cancel(sequence); }

 private:
  /// What the C functions call comes in through here, and nothing that is thrown gets out. The bus may go meanwhile.
  template <typename F>
  static void Enter(F &&body) noexcept {
    if (Current() == nullptr) return;
    const auto keep = Current()->shared_from_this();
    if (const auto error = Guard([&] { body(*keep); })) keep->Report(*error);
  }

  static Core *&Current() noexcept {
    static Core *current = nullptr;
    return current;
  }

  // --- calls ---

  // A request to oneself does not go through the server: a call that blocks could not dispatch it. Its handler runs
  // here, or in the loop's next turn.
  std::uint32_t SendRequest(const Awaited &awaited, const Content &content, bool later) {
    if (awaited.destination[0] == '\0' || name_ != awaited.destination) {
      return SendContent(awaited.destination, awaited.type, content, awaited.sequence);
    }
    const std::string_view body = content.body();
    if (body.size() > ZOR_MSG_DISPATCH_BODY_MAX) return ZOR_E_NO_MEMORY;
    void *const place = ZOR_MSG_GetMsgBlock(static_cast<std::uint32_t>(body.size()));
    if (place == nullptr) return ZOR_E_NO_MEMORY;
    Block message(ZOR_MSG_GetMsgHead(place));
    message->type = awaited.type;
    message->sequence = awaited.sequence;
    message->data = content.word();
    std::memcpy(message->source, awaited.destination, sizeof message->source);
    std::memcpy(message->destination, awaited.destination, sizeof message->destination);
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

  Error GiveUp(const Awaited &awaited) {
    calls_.GiveUp(awaited);
    return Error(ZOR_E_TIMEOUT);
  }

  void Complete(std::uint32_t sequence, Result<Reply> result) {
    const ReplyCallback callback = calls_.Take(sequence);
    if (callback) RunCallback([&] { callback(std::move(result)); });
  }

  void ArmCallTimer(Clock::time_point deadline) {
    nextDeadline_ = deadline;
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now()).count() + 1;
    const std::uint32_t ms = ToWait(Milliseconds(left < 1 ? 1 : left));
    if (callTimer_ == nullptr) {
      callTimer_ = AddTimer(loop_, ms, false, OnCallTimer, nullptr);
    } else {
      ZOR_UTIL_TimerChgPeriod(callTimer_, ms);
    }
  }

  // Replies that have been received are in time.
  static void OnCallTimer(void *) {
    Enter([](Core &core) {
      core.Drain();
      core.ExpireCalls();
    });
  }

  void ExpireCalls() {
    auto next = Clock::time_point::max();
    const std::vector<std::uint32_t> expired = calls_.Expired(Clock::now(), next);
    nextDeadline_ = next;
    if (callTimer_ == nullptr) return;
    if (next == Clock::time_point::max()) {
      ZOR_UTIL_TimerChgPeriod(callTimer_, 0);
    } else {
      ArmCallTimer(next);
    }
    for (const std::uint32_t sequence : expired) Complete(sequence, Error(ZOR_E_TIMEOUT));
  }

  // --- what was received while a call was waiting ---

  void SetAside(Block message, bool isOwnRequest) {
    backlog_.Put(std::move(message), isOwnRequest);
    if (drainHook_ == nullptr) drainHook_ = ZOR_UV_IdleStart(loop_, OnTurn);
    const UvTime atOnce = {0, 0};
    ZOR_UV_LoopUpdateSelectTimeout(loop_, &atOnce);
  }
  static void OnTurn(UvIdle *, std::uint32_t) {
    if (Current() != nullptr && !Current()->backlog_.empty()) Enter([](Core &core) { core.Drain(); });
  }
  void Drain() {
    while (!backlog_.empty()) {
      const Backlog::Waiting next = backlog_.Next();
      Dispatch(*next.message, next.isOwnRequest);
    }
  }

  // --- dispatch ---

  static void OnMessage(ZOR_MSG_HEAD *message, std::uint32_t) {
    Enter([message](Core &core) {
      core.Drain();
      core.Dispatch(*message, false);
    });
  }

  void Dispatch(ZOR_MSG_HEAD &head, bool isOwnRequest);

  bool TakeReply(const ZOR_MSG_HEAD &head);

  bool TakeNotice(const ZOR_MSG_HEAD &head, std::uint32_t type);

  // A handler may end any of them, itself included, and add others, which are not called for this message.
  template <typename E, typename F>
  void ForEach(const Entries &entries, F &&run) {
    const Entries present = entries;
    for (const auto &entry : present) {
      if (entry->live()) RunCallback([&] { run(static_cast<const E &>(*entry)); });
    }
  }

  void RunHandlers(ZOR_MSG_HEAD &head, const Entries &handlers);

  void RunOne(const ZOR_MSG_HEAD &head, const MessageHandler &handler) noexcept;

  void RunSubscriptions(const ZOR_MSG_HEAD &head, std::uint32_t type);

 public:
  /// What becomes of an error in a handler: the reply of a request, else a report.
  void Settle(Exchange &exchange, const Error &error) noexcept;

  std::string Describe() const;

  void Stop(int exitStatus) {
    exitStatus_ = exitStatus;
    ZOR_UV_LoopStop(loop_);
  }

  int Run() {
    exitStatus_ = 0;
    ++runs_;
    const std::uint32_t status = ZOR_UV_LoopRun(loop_, 0);
    --runs_;
    Check(status, "the loop");
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

  void AddBuiltIns();

  void AskForGaps(std::uint32_t on) {
    ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_CONTROL_GAPS, on);  // where the server is gone, rejoining asks again
  }

  // --- the connection ---

  static void OnLink(std::uint32_t event, void *) {
    Enter([event](Core &core) { core.OnLinkEvent(event); });
  }

  void OnLinkEvent(std::uint32_t event);

  void DropTasks() {
    while (!tasks_.alone()) {
      auto &task = static_cast<TaskLink &>(tasks_.next());
      task.destroy(task);
    }
  }

  Options options_;
  std::string name_;
  UvLoop *loop_ = nullptr;  // not the passing one of a synchronous spawn
  int owner_ = 0;           // the process that joined
  int exitStatus_ = 0;
  int depth_ = 0;         // callbacks that are running
  int runs_ = 0;          // runs of the loop, one within the other
  Link entries_, tasks_;  // the rings of what the bus owns
  TypeTable handlers_;
  TypeTable subscriptions_;
  Entries links_;
  Entries gaps_;
  Json modules_;  // event types by module
  std::shared_ptr<Function<void(const Error &)>> errorHandler_;
  Calls calls_;
  Backlog backlog_;
  Clock::time_point nextDeadline_ = Clock::time_point::max();
  UvTimer *callTimer_ = nullptr;
  UvIdle *drainHook_ = nullptr;
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

#include <zor/cpp/dispatch.hpp>

#endif
