// A request as its handler sees it, and a reply that is sent later.
#ifndef ZOR_CPP_REQUEST_HPP
#define ZOR_CPP_REQUEST_HPP

#include <zor/cpp/core.hpp>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

namespace zor {
inline namespace face {

/// A reply that is owed. Moved, never copied; one that is dropped unused sends an error reply and is reported to
/// Bus::on_error, so that no client waits in vain.
class Deferred {
 public:
  Deferred(std::weak_ptr<detail::Core> core, const ZOR_MSG_HEAD &request) : core_(std::move(core)), to_(request) {}
  Deferred(Deferred &&other) noexcept : core_(std::exchange(other.core_, {})), to_(other.to_) {}
  Deferred &operator=(Deferred &&other) noexcept {
    Drop();
    core_ = std::exchange(other.core_, {});
    to_ = other.to_;
    return *this;
  }
  ~Deferred() { Drop(); }

  /// Whether the reply is still owed, and the bus there to send it.
  bool owed() const noexcept { return !core_.expired(); }

  /// Sends the reply. Raises Argument when it was sent already.
  void reply(const Content &content = {}) { Send(content, "reply"); }
  /// Sends an error reply.
  void fail(std::uint32_t status, const std::string &text) {
    Send(detail::ErrorContent(Error(status, text)), "error reply");
  }
  void fail(const Error &error) { fail(error.status(), error.text()); }

 private:
  void Send(const Content &content, const char *what) {
    if (!owed()) Argument("the request was replied to already").raise();
    core_.reset();
    detail::Check(detail::SendReply(to_, content), what);
  }
  void Drop() noexcept {
    const auto core = core_.lock();
    if (core == nullptr) return;
    core_.reset();
    const Failed dropped("the request was dropped without a reply");
    const auto failure = detail::Guard([&] { detail::SendReply(to_, detail::ErrorContent(dropped)); });
    core->Report(failure ? *failure : dropped);
  }

  std::weak_ptr<detail::Core> core_;
  detail::ReplyTo to_;
};

/// A request or one-way message that was received. It refers to the message, and is valid until its handler has
/// returned; in a coroutine, until that has ended, if it was taken by value. Use defer() to reply later.
class Request : public Received {
 public:
  explicit Request(detail::Exchange &exchange) noexcept : Received(exchange.request()), exchange_(&exchange) {}

  /// Sends the reply now; the handler's own result is not sent then. Raises Argument when it was replied to.
  void reply(const Content &content = {}) const {
    SetDone();
    detail::Check(detail::SendReply(detail::ReplyTo(*head()), content), "reply");
  }
  /// Sends an error reply.
  void fail(std::uint32_t status, const std::string &text) const { reply(detail::ErrorContent(Error(status, text))); }
  /// Takes over the reply: it is owed by the object that is returned, not by the handler's end.
  Deferred defer() const {
    SetDone();
    return Deferred(exchange_->core().weak_from_this(), *head());
  }
  /// The descriptor that was sent behind this message; waits for it.
  Fd receive_fd(std::chrono::milliseconds timeout = std::chrono::seconds(5)) const {
    return try_receive_fd(timeout).value();
  }
  Result<Fd> try_receive_fd(std::chrono::milliseconds timeout = std::chrono::seconds(5)) const {
    int fd = -1;
    const std::uint32_t status = ZOR_MSG_RecvFd(&fd, static_cast<std::uint32_t>(timeout.count()));
    if (status != ZOR_OK) return Error(status);
    return Fd(fd);
  }

 private:
  void SetDone() const {
    if (exchange_->done() && exchange_->is_request()) Argument("the request was replied to already").raise();
    exchange_->SetDone();
  }

  detail::Exchange *exchange_;
};

namespace detail {

template <typename T>
struct IsResult : std::false_type {};
template <typename T>
struct IsResult<Result<T>> : std::true_type {};

/// What a coroutine returns; <zor/cpp/task.hpp> says for which types this is true.
template <typename T>
struct IsTask : std::false_type {};

inline void Finish(Exchange &exchange, const Content &content) {
  if (exchange.done()) return;
  exchange.SetDone();
  Check(SendReply(ReplyTo(exchange.request()), content), "reply");
}

/// Turns the result of a handler, or of a coroutine, into the reply.
template <typename R>
void FinishWith(Exchange &exchange, R &&result) {
  using D = std::remove_cv_t<std::remove_reference_t<R>>;
  if constexpr (!IsResult<D>::value) {
    Finish(exchange, std::forward<R>(result));
  } else if (!result) {
    exchange.core().Settle(exchange, result.error());
  } else if constexpr (std::is_void_v<typename D::value_type>) {
    Finish(exchange, Content());
  } else {
    Finish(exchange, *result);
  }
}

template <typename Invoke>
void StartTask(const std::shared_ptr<Invoke> &invoke, Exchange &exchange);

/// What the bus calls for a handler that is called with the Request.
template <typename Invoke>
Function<void(Exchange &)> HandlerOf(Invoke invoke) {
  using R = std::invoke_result_t<Invoke &, const Request &>;
  if constexpr (IsTask<R>::value) {
    return [shared = std::make_shared<Invoke>(std::move(invoke))](Exchange &exchange) { StartTask(shared, exchange); };
  } else if constexpr (std::is_void_v<R>) {
    return [invoke = std::move(invoke)](Exchange &exchange) mutable {
      invoke(Request(exchange));
      Finish(exchange, Content());
    };
  } else {
    return
        [invoke = std::move(invoke)](Exchange &exchange) mutable { FinishWith(exchange, invoke(Request(exchange))); };
  }
}

/// Calls a handler with as many of the message and the request as it takes.
template <typename M, typename F>
auto CallWithMessage(F handler) {
  return [handler = std::move(handler)](const Request &request) mutable {
    if constexpr (std::is_invocable_v<F &, M, const Request &>) {
      return handler(request.as<M>(), request);
    } else if constexpr (std::is_invocable_v<F &, M>) {
      return handler(request.as<M>());
    } else {
      static_assert(std::is_invocable_v<F &, const Request &>, "the handler takes the message, the request, or both");
      return handler(request);
    }
  };
}

}  // namespace detail

}  // namespace face
}  // namespace zor

#endif
