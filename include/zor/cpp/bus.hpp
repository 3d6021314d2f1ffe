// The bus as a daemon uses it.
#ifndef ZOR_CPP_BUS_HPP
#define ZOR_CPP_BUS_HPP

#include <zor/cpp/child.hpp>
#include <zor/cpp/publish.hpp>
#include <zor/cpp/task.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace zor {
inline namespace face {

/// The time-out of Options.
inline constexpr std::chrono::milliseconds kDefaultTimeout{-1};

/// The connection of this process to the message server, its loop, and everything registered with it, which all end
/// with it. There is one per process. It belongs to one thread, as the C functions do, which may be used beside it.
///
/// Handlers, callbacks and coroutines run in run(), one at a time. They may do anything to the bus, end themselves
/// included. What they throw never passes through the library: in a handler of a request it becomes an error reply,
/// anywhere else it goes to on_error().
///
/// A handler's result is the reply: nothing; an integer, its data word; a text, bytes or Json, its body; a pair of
/// both; a described type; a Result of these; a Task of these. An error reply is a status as data word and the body
/// {"error":"TEXT"}; a call that gets one raises Failed.
///
/// What is registered stays until the bus ends, or until the Handle that was returned is stopped; put it into a Scoped
/// to have it end with an owner.
class Bus {
 public:
  /// Joins the bus under a name, of which 11 characters count. Raises NotConnected without a server, Refused when no
  /// name was granted, Error with ZOR_E_BUSY when this process is on the bus already.
  explicit Bus(std::string_view name, const Options &options = {}) : core_(Join(name, options).value()) {}
  /// The same without exceptions.
  static Result<std::unique_ptr<Bus>> try_open(std::string_view name, const Options &options = {}) {
    auto core = Join(name, options);
    if (!core) return core.error();
    return std::unique_ptr<Bus>(new Bus(std::move(*core)));
  }
  Bus(const Bus &) = delete;
  Bus &operator=(const Bus &) = delete;
  ~Bus() { core_->Leave(); }

  /// The name that the server granted.
  const std::string &name() const noexcept { return core_->name(); }

  // --- handlers ---

  /// Serves the requests of a type. The handler takes a Request, or nothing; its result is the reply. Raises Argument
  /// when the type has a handler.
  template <typename F>
  Handle serve(std::uint32_t type, F handler) {
    return AddHandler(type, true, nullptr, detail::HandlerOf(Plain(std::move(handler))));
  }
  /// Serves a described request. The handler takes the T::Request, the Request, or both. A body that does not decode
  /// gets an error reply without it.
  template <typename T, typename F>
  Handle serve(F handler) {
    return AddHandler(T::kType, true, T::kName, DescribedHandler<typename T::Request>(std::move(handler)));
  }
  /// Receives the one-way messages of a type; the handler takes a Request, or nothing.
  template <typename F>
  Handle on(std::uint32_t type, F handler) {
    return AddHandler(type, false, nullptr, detail::HandlerOf(Plain(std::move(handler))));
  }
  /// Receives a described one-way message or event. The handler takes the T::Message, the Request or Event, or both.
  template <typename T, typename F>
  Handle on(F handler) {
    if constexpr (IsDescribedEvent<T>::value) {
      return DescribedEvents<T>(std::move(handler)).value();
    } else {
      return AddHandler(T::kType, false, T::kName, DescribedHandler<typename T::Message>(std::move(handler)));
    }
  }

  // --- events ---

  /// Says which event type a module of one's own has; the library knows those of the system's.
  void module(std::string_view name, std::uint32_t type) { core_->DeclareModule(name, type); }

  /// Subscribes to the events of a module: `bus.events("lan", [](const zor::Event &event) {})`.
  Handle events(std::string_view module, Function<void(const Event &)> handler) {
    return try_events(module, {}, std::move(handler)).value();
  }
  /// The same for events of one name.
  Handle events(std::string_view module, std::string_view name, Function<void(const Event &)> handler) {
    return try_events(module, name, std::move(handler)).value();
  }
  /// Subscribes to the events of a type; ZOR_EVT_ALL stands for all types.
  Handle events(std::uint32_t type, Function<void(const Event &)> handler) {
    return try_events(type, std::move(handler)).value();
  }
  Result<Handle> try_events(std::string_view module, std::string_view name, Function<void(const Event &)> handler) {
    const Result<std::uint32_t> type = core_->TypeOf(module);
    if (!type) return type.error();
    return Subscribe(*type, module, name, std::move(handler));
  }
  Result<Handle> try_events(std::uint32_t type, Function<void(const Event &)> handler) {
    if (!detail::IsEvent(type)) return Error(ZOR_E_ARGUMENT, "not the type of an event");
    return Subscribe(type, {}, {}, std::move(handler));
  }

  /// Publishes an event: `bus.publish("thermo", "reached", {{"actual", 21.5}})`. Where the module's type carries items
  /// and not JSON (ZOR_EVT_ITEMS_FIRST and on), its subscribers get the members' values as texts.
  void publish(std::string_view module, std::string_view name, const Json &payload = {}) {
    try_publish(module, name, payload).value();
  }
  Result<void> try_publish(std::string_view module, std::string_view name, const Json &payload = {}) {
    const Result<std::uint32_t> type = core_->TypeOf(module);
    if (!type) return type.error();
    return detail::Publish(module, name, *type, payload);
  }
  /// The same by event type.
  void publish(std::uint32_t type, std::string_view name, const Json &payload = {}) {
    detail::Publish(core_->ModuleOf(type), name, type, payload).value();
  }
  /// Publishes a described event.
  template <typename T>
  void publish(const typename T::Message &message) {
    std::string text;
    message.append_to(text);
    if (text.substr(0, 1) == "{") return detail::Publish(T::kModule, T::kEvent, T::kType, Json::parse(text)).value();
    detail::Check(detail::SendContent(nullptr, T::kType, message, 0), "publish");
  }

  // --- calls ---

  /// Sends a request and waits for its reply, for which the loop stands still. Raises PeerGone at once when no client
  /// has the name, Timeout, Failed for an error reply. A time-out of 0 waits without limit. Other messages wait for the
  /// loop; with the thousandth of them the wait ends as with Timeout. The empty name is the message server.
  Reply call(std::string_view destination, std::uint32_t type, const Content &content = {},
             std::chrono::milliseconds timeout = kDefaultTimeout) {
    return try_call(destination, type, content, timeout).value();
  }
  Result<Reply> try_call(std::string_view destination, std::uint32_t type, const Content &content = {},
                         std::chrono::milliseconds timeout = kDefaultTimeout) {
    return core_->Call(destination, type, content, TimeoutOf(timeout));
  }
  /// Calls with a described request.
  template <typename T>
  typename T::Reply call(std::string_view destination, const typename T::Request &request = {},
                         std::chrono::milliseconds timeout = kDefaultTimeout) {
    return try_call<T>(destination, request, timeout).value();
  }
  template <typename T>
  Result<typename T::Reply> try_call(std::string_view destination, const typename T::Request &request = {},
                                     std::chrono::milliseconds timeout = kDefaultTimeout) {
    const Result<Reply> reply = try_call(destination, T::kType, Content(request), timeout);
    if (!reply) return reply.error();
    return reply->template try_as<typename T::Reply>();
  }

  /// Sends a request and returns; the loop calls back with the reply or the error, once.
  void call_async(std::string_view destination, std::uint32_t type, const Content &content,
                  std::chrono::milliseconds timeout, Function<void(Result<Reply>)> callback) {
    static_cast<void>(core_->CallAsync(destination, type, content, TimeoutOf(timeout), std::move(callback)).value());
  }

#if ZOR_CPP_COROUTINES
  /// Sends a request now; `co_await` gives its Reply or raises the error. C++20. With Json in braces, g++ 12 takes two
  /// steps: `auto call = bus.call_async(...); co_await call`.
  PendingCall<Reply, false> call_async(std::string_view destination, std::uint32_t type, const Content &content = {},
                                       std::chrono::milliseconds timeout = kDefaultTimeout) {
    return {core_, destination, type, content, TimeoutOf(timeout)};
  }
  /// The same; `co_await` gives a Result.
  PendingCall<Reply, true> try_call_async(std::string_view destination, std::uint32_t type, const Content &content = {},
                                          std::chrono::milliseconds timeout = kDefaultTimeout) {
    return {core_, destination, type, content, TimeoutOf(timeout)};
  }
  /// Calls with a described request; `co_await` gives its reply.
  template <typename T>
  PendingCall<typename T::Reply, false> call_async(std::string_view destination, const typename T::Request &request,
                                                   std::chrono::milliseconds timeout = kDefaultTimeout) {
    return {core_, destination, T::kType, Content(request), TimeoutOf(timeout)};
  }
  template <typename T>
  PendingCall<typename T::Reply, false> call_async(std::string_view destination) {
    const typename T::Request request{};
    return call_async<T>(destination, request);
  }
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ < 14
  /// Older g++ destroys what stands in braces within a co_await expression in the wrong place: name the request first.
  template <typename T>
  void call_async(std::string_view destination, typename T::Request &&request,
                  std::chrono::milliseconds timeout = kDefaultTimeout) = delete;
#endif
  /// Runs a coroutine beside everything else; what it throws goes to on_error().
  void spawn(Task<> task) {
    detail::Start(*core_, detail::RunDetached(*core_, std::move(task)));
  }
  /// `co_await bus.sleep(100ms)`.
  Sleep sleep(std::chrono::milliseconds time) {
    return {*core_, time};
  }
#endif

  // --- messages ---

  /// Sends a one-way message. That no client has the name is not noticed.
  void send(std::string_view destination, std::uint32_t type, const Content &content = {}) {
    try_send(destination, type, content).value();
  }
  Result<void> try_send(std::string_view destination, std::uint32_t type, const Content &content = {}) {
    return detail::ResultOf(detail::SendContent(std::string(destination).c_str(), type, content, 0));
  }
  /// Sends a described one-way message.
  template <typename T>
  void send(std::string_view destination, const typename T::Message &message) {
    send(destination, T::kType, message);
  }
  /// Sends a message and a descriptor behind it, which stays open here; its handler calls Request::receive_fd().
  void send_fd(std::string_view destination, std::uint32_t type, int fd, const Content &content = {}) {
    send(destination, type, content);
    detail::Check(ZOR_MSG_SendFd(fd), "send_fd");
  }

  // --- the loop ---

  /// Calls back every so often, first after that time.
  Handle every(std::chrono::milliseconds period, Function<void()> callback) {
    return StartTimer(period, false, std::move(callback));
  }
  /// Calls back once, after that time.
  Handle after(std::chrono::milliseconds time, Function<void()> callback) {
    return StartTimer(time, true, std::move(callback));
  }
  /// Calls back while a descriptor is ready for these events, UV_READABLE and UV_WRITABLE, with one of them at a time.
  /// Stop the watch before the descriptor is closed.
  Handle watch(int fd, Function<void(std::uint32_t)> callback, std::uint32_t events = UV_READABLE) {
    auto entry = std::make_shared<detail::Watch>();
    entry->run = std::move(callback);
    return Begin(entry, entry->Start(core_->loop(), fd, events), "watch");
  }
  /// Starts a program. ZOR_E_BUSY in a callback of ZOR_UV_ProcessSpawnSync().
  Child execute(Command command) {
    auto entry = std::make_shared<detail::ChildEntry>();
    entry->command = std::move(command);
    static_cast<void>(Begin(entry, entry->Start(core_->loop()), "execute"));
    return Child(entry);
  }

  /// Runs the loop until stop(), and returns the exit status given there, or until a handler destroys the bus.
  int run() {
    const auto keep = core_;
    return keep->Run();
  }
  /// Ends run() when the running callback has returned. Before run() it ends that at once.
  void stop(int exit_status = 0) {
    core_->Stop(exit_status);
  }

  // --- what happens to the connection ---

  /// The connection to the server has ended; calls under way get PeerGone after this.
  Handle on_lost(Function<void()> callback) {
    return AddLinkHandler(ZOR_MSG_LINK_LOST, std::move(callback));
  }
  /// The connection is restored, under the same name and with all subscriptions.
  Handle on_rejoined(Function<void()> callback) {
    return AddLinkHandler(ZOR_MSG_LINK_REJOINED, std::move(callback));
  }
  /// Events were lost because this process did not read in time; called before the next event.
  Handle on_gap(Function<void(const Gap &)> callback) {
    auto handler = std::make_shared<detail::GapHandler>();
    handler->run = std::move(callback);
    return core_->Add(std::move(handler));
  }
  /// Gets the errors that have no caller: what was thrown in callbacks and handlers of events and one-way messages, and
  /// replies that could not be sent. Without one they are a line on standard error.
  void on_error(Function<void(const Error &)> callback) {
    core_->SetErrorHandler(std::move(callback));
  }

 private:
  template <typename T, typename = void>
  struct IsDescribedEvent : std::false_type {};
  template <typename T>
  struct IsDescribedEvent<T, std::void_t<decltype(T::kEvent)>> : std::true_type {};

  explicit Bus(std::shared_ptr<detail::Core> core) : core_(std::move(core)) {}

  static Result<std::shared_ptr<detail::Core>> Join(std::string_view name, const Options &options) {
    auto core = std::make_shared<detail::Core>(options);
    const std::string text(name);
    const std::uint32_t status = core->Join(text);
    if (status == ZOR_OK) return core;
    core->Leave();
    if (status == ZOR_E_BUSY) return Error(status, "this process is on the bus already");
    return Error(status, text + ": " + Error(status).text());
  }

  std::chrono::milliseconds TimeoutOf(std::chrono::milliseconds timeout) const {
    return timeout < std::chrono::milliseconds(0) ? core_->options().timeout : timeout;
  }

  template <typename F>
  static auto Plain(F handler) {
    if constexpr (std::is_invocable_v<F &, const Request &>) {
      return handler;
    } else {
      static_assert(std::is_invocable_v<F &>, "the handler takes a zor::Request, or nothing");
      return [handler = std::move(handler)](const Request &) mutable { return handler(); };
    }
  }
  template <typename M, typename F>
  static Function<void(detail::Exchange &)> DescribedHandler(F handler) {
    if constexpr (std::is_invocable_v<F &>) {
      return detail::HandlerOf(Plain(std::move(handler)));
    } else {
      return detail::HandlerOf(detail::CallWithMessage<M>(std::move(handler)));
    }
  }

  Handle AddHandler(std::uint32_t type, bool isRequest, const char *name, Function<void(detail::Exchange &)> run) {
    auto handler = std::make_shared<detail::MessageHandler>();
    handler->type = type & ZOR_MSG_TYPE_MASK;
    handler->isRequest = isRequest;
    handler->name = name;
    handler->run = std::move(run);
    return core_->Add(std::move(handler));
  }

  Result<Handle> Subscribe(std::uint32_t type, std::string_view module, std::string_view name,
                           Function<void(const Event &)> run) {
    auto subscription = std::make_shared<detail::Subscription>();
    subscription->type = type;
    subscription->module = module;
    subscription->name = name;
    subscription->run = std::move(run);
    return core_->Add(std::move(subscription));
  }

  template <typename T, typename F>
  Result<Handle> DescribedEvents(F handler) {
    using M = typename T::Message;
    return Subscribe(T::kType, T::kModule, T::kEvent, [handler = std::move(handler)](const Event &event) mutable {
      if constexpr (std::is_invocable_v<F &, M, const Event &>) {
        handler(event.as<M>(), event);
      } else if constexpr (std::is_invocable_v<F &, M>) {
        handler(event.as<M>());
      } else {
        handler(event);
      }
    });
  }

  Handle AddLinkHandler(std::uint32_t event, Function<void()> callback) {
    auto handler = std::make_shared<detail::LinkHandler>();
    handler->event = event;
    handler->run = std::move(callback);
    return core_->Add(std::move(handler));
  }

  Handle StartTimer(std::chrono::milliseconds time, bool once, Function<void()> callback) {
    auto timer = std::make_shared<detail::Timer>();
    timer->run = std::move(callback);
    return Begin(timer, timer->Start(core_->loop(), time, once), "timer");
  }

  template <typename E>
  Handle Begin(const std::shared_ptr<E> &entry, std::uint32_t status, const char *what) {
    detail::Check(status, what);
    return core_->Own(entry);
  }

  std::shared_ptr<detail::Core> core_;
};

}  // namespace face
}  // namespace zor

#endif
