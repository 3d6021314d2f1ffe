// Coroutines (C++20): handlers that wait for other daemons without blocking the loop.
#ifndef ZOR_CPP_TASK_HPP
#define ZOR_CPP_TASK_HPP

#include <zor/cpp/request.hpp>

#if defined(__cpp_impl_coroutine) && defined(__has_include)
#if __has_include(<coroutine>)
#define ZOR_CPP_COROUTINES 1
#endif
#endif
#ifndef ZOR_CPP_COROUTINES
#define ZOR_CPP_COROUTINES 0
#endif

#if ZOR_CPP_COROUTINES

#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

namespace zor {
inline namespace face {

template <typename T = void>
class Task;

namespace detail {

/// What the promises of all tasks share: who waits, and what was thrown.
class PromiseBase {
 public:
  struct FinalAwaiter {
    bool await_ready() const noexcept { return false; }
    template <typename P>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<P> self) const noexcept {
      const auto next = self.promise().waiter;
      return next ? next : std::noop_coroutine();
    }
    void await_resume() const noexcept {}
  };
  std::suspend_always initial_suspend() const noexcept { return {}; }
  FinalAwaiter final_suspend() const noexcept { return {}; }
  void unhandled_exception() noexcept { thrown = std::current_exception(); }
  void Rethrow() const {
#if ZOR_CPP_EXCEPTIONS
    if (thrown) std::rethrow_exception(thrown);
#endif
  }

  std::coroutine_handle<> waiter;
  std::exception_ptr thrown;
};

template <typename T>
class Promise : public PromiseBase {
 public:
  Task<T> get_return_object() noexcept;
  template <typename U>
  void return_value(U &&value) {
    value_.emplace(std::forward<U>(value));
  }
  T Take() {
    Rethrow();
    return std::move(*value_);
  }

 private:
  std::optional<T> value_;
};

template <>
class Promise<void> : public PromiseBase {
 public:
  Task<void> get_return_object() noexcept;
  void return_void() noexcept {}
  void Take() const { Rethrow(); }
};

/// A coroutine that nothing waits for; the bus destroys it if it goes first.
struct Root {
  struct promise_type : TaskLink {
    Root get_return_object() noexcept { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
    std::suspend_always initial_suspend() const noexcept { return {}; }
    std::suspend_never final_suspend() const noexcept { return {}; }
    void return_void() noexcept {}
    void unhandled_exception() noexcept { std::terminate(); }  // they catch what their tasks throw
  };
  std::coroutine_handle<promise_type> handle;
};

}  // namespace detail

/// A coroutine of this interface: `co_await` it, return it from a handler, or hand it to Bus::spawn. Runs from the
/// first co_await on; destroying it ends it where it waits. Take arguments of coroutines by value.
template <typename T>
class [[nodiscard]] Task {
 public:
  using promise_type = detail::Promise<T>;
  using Frame = std::coroutine_handle<promise_type>;
  explicit Task(Frame frame) noexcept : frame_(frame) {}
  Task(Task &&other) noexcept : frame_(std::exchange(other.frame_, {})) {}
  Task &operator=(Task &&) = delete;
  ~Task() {
    if (frame_) frame_.destroy();
  }

  bool await_ready() const noexcept { return frame_.done(); }
  std::coroutine_handle<> await_suspend(std::coroutine_handle<> waiter) const noexcept {
    frame_.promise().waiter = waiter;
    return frame_;
  }
  T await_resume() const { return frame_.promise().Take(); }

  /// Waits for its end only: the result, or what was thrown, is taken from it afterwards.
  struct End {
    const Task &task;
    bool await_ready() const noexcept { return task.await_ready(); }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> waiter) const noexcept {
      return task.await_suspend(waiter);
    }
    void await_resume() const noexcept {}
  };

 private:
  Frame frame_;
};

namespace detail {

template <typename T>
struct IsTask<Task<T>> : std::true_type {};

template <typename T>
Task<T> Promise<T>::get_return_object() noexcept {
  return Task<T>(std::coroutine_handle<Promise>::from_promise(*this));
}
inline Task<void> Promise<void>::get_return_object() noexcept {
  return Task<void>(std::coroutine_handle<Promise>::from_promise(*this));
}

inline void Start(Core &core, Root root) {
  root.handle.promise().destroy = [](TaskLink &link) {
    std::coroutine_handle<Root::promise_type>::from_promise(static_cast<Root::promise_type &>(link)).destroy();
  };
  core.Own(root.handle.promise());
  root.handle.resume();
}

inline Root RunDetached(Core &core, Task<void> task) {
  co_await Task<void>::End{task};
  if (const auto error = Guard([&] { task.await_resume(); })) core.Report(*error);
}

/// What a handler that is a coroutine needs until its end. If the bus goes before, its client is not left waiting.
struct Running {
  Running(Core &core, Block block, bool isRequest)
      : message(std::move(block)), exchange(core, *message, isRequest), request(exchange) {}
  Running(const Running &) = delete;
  Running &operator=(const Running &) = delete;
  ~Running() {
    if (exchange.done()) return;
    static_cast<void>(
        Guard([&] { SendReply(ReplyTo(*message), ErrorContent(Failed("the daemon ended before it replied"))); }));
  }
  Block message;
  Exchange exchange;
  Request request;
};

template <typename T, typename Invoke>
Root RunHandler(std::shared_ptr<Running> running, std::shared_ptr<Invoke> keep, Task<T> task) {
  static_cast<void>(keep);  // what the handler captured lives in there
  co_await typename Task<T>::End{task};
  Exchange &exchange = running->exchange;
  Core &core = exchange.core();
  const auto error = Guard([&] {
    if constexpr (std::is_void_v<T>) {
      task.await_resume();
      Finish(exchange, Content());
    } else {
      FinishWith(exchange, task.await_resume());
    }
  });
  if (error) core.Settle(exchange, *error);
}

template <typename Invoke>
void StartTask(const std::shared_ptr<Invoke> &invoke, Exchange &exchange) {
  Block copy(ZOR_MSG_Dup(&exchange.request()));
  if (copy == nullptr) NoMemory().raise();
  auto running = std::make_shared<Running>(exchange.core(), std::move(copy), exchange.is_request());
  exchange.SetDone();
  std::optional<std::invoke_result_t<Invoke &, const Request &>> task;
  const auto error = Guard([&] { task.emplace((*invoke)(running->request)); });
  if (error) return exchange.core().Settle(running->exchange, *error);
  Start(exchange.core(), RunHandler(std::move(running), invoke, std::move(*task)));
}

/// A call on its way. M is Reply or a described message; kTries: the result is a Result<M>.
struct CallState {
  std::optional<Result<Reply>> result;
  std::coroutine_handle<> waiter;
};

}  // namespace detail

/// A call that was sent and is awaited with co_await, at once or later. Dropping it gives up the reply.
template <typename M, bool kTries>
class [[nodiscard]] PendingCall {
 public:
  PendingCall(const std::shared_ptr<detail::Core> &core, std::string_view destination, std::uint32_t type,
              const Content &content, std::chrono::milliseconds timeout)
      : core_(core), state_(std::make_shared<detail::CallState>()) {
    auto number = core->CallAsync(destination, type, content, timeout, [state = state_](Result<Reply> result) {
      state->result.emplace(std::move(result));
      if (const auto waiter = std::exchange(state->waiter, nullptr)) waiter.resume();
    });
    if (number) {
      sequence_ = *number;
    } else {
      state_->result.emplace(number.error());
    }
  }
  PendingCall(PendingCall &&) noexcept = default;
  PendingCall &operator=(PendingCall &&) = delete;
  ~PendingCall() {
    if (state_ == nullptr || state_->result) return;
    state_->waiter = nullptr;
    if (const auto core = core_.lock()) core->Cancel(sequence_);
  }

  bool await_ready() const noexcept { return state_->result.has_value(); }
  void await_suspend(std::coroutine_handle<> waiter) const noexcept { state_->waiter = waiter; }
  auto await_resume() const {
    if constexpr (kTries) {
      return Decode();
    } else {
      return Decode().value();
    }
  }

 private:
  Result<M> Decode() const {
    if constexpr (std::is_same_v<M, Reply>) {
      return std::move(*state_->result);
    } else {
      if (!*state_->result) return state_->result->error();
      return (*state_->result)->template try_as<M>();
    }
  }

  std::weak_ptr<detail::Core> core_;
  std::shared_ptr<detail::CallState> state_;
  std::uint32_t sequence_ = 0;
};

/// Suspends a coroutine for a time.
class [[nodiscard]] Sleep {
 public:
  Sleep(detail::Core &core, std::chrono::milliseconds time) noexcept : core_(core), time_(time) {}
  Sleep(const Sleep &) = delete;
  Sleep &operator=(const Sleep &) = delete;

  bool await_ready() const noexcept { return false; }
  void await_suspend(std::coroutine_handle<> waiter) {
    auto timer = std::make_shared<detail::Timer>();
    timer->run = [waiter] { waiter.resume(); };
    detail::Check(timer->Start(core_.loop(), time_, true), "sleep");
    timer_ = core_.Own(timer);
  }
  void await_resume() const noexcept {}

 private:
  detail::Core &core_;
  std::chrono::milliseconds time_;
  Scoped timer_;
};

}  // namespace face
}  // namespace zor

#endif  // ZOR_CPP_COROUTINES

#endif
