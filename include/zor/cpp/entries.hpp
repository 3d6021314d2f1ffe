// The kinds of registrations that the bus owns: handlers, subscriptions, timers and watched descriptors.
#ifndef ZOR_CPP_ENTRIES_HPP
#define ZOR_CPP_ENTRIES_HPP

#include <zor/uv.h>
#include <zor/cpp/event.hpp>
#include <zor/cpp/function.hpp>
#include <zor/cpp/handle.hpp>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

namespace zor {
inline namespace face {
namespace detail {

/// One request or message that a handler is working on, and whether it was replied to.
class Exchange {
 public:
  Exchange(Core &core, const ZOR_MSG_HEAD &request, bool wantsReply) noexcept
      : core_(core), request_(request), isRequest_(wantsReply), done_(!wantsReply) {}
  Exchange(const Exchange &) = delete;
  Exchange &operator=(const Exchange &) = delete;

  Core &core() const noexcept { return core_; }
  const ZOR_MSG_HEAD &request() const noexcept { return request_; }
  bool is_request() const noexcept { return isRequest_; }
  bool done() const noexcept { return done_; }
  /// The reply is somebody else's affair from now on.
  void SetDone() noexcept { done_ = true; }

 private:
  Core &core_;
  const ZOR_MSG_HEAD &request_;
  bool isRequest_;
  bool done_;
};

/// A handler of one message type.
struct MessageHandler final : Entry {
  std::uint32_t type = 0;
  bool isRequest = false;
  bool isBuiltIn = false;  // one of the user's takes its place
  const char *name = nullptr;
  Function<void(Exchange &)> run;

  void Leave(Core &core) override;
};

/// A subscription to the events of a type, perhaps of one module and name only.
struct Subscription final : Entry {
  std::uint32_t type = 0;
  std::string module;
  std::string name;
  Function<void(const Event &)> run;

  bool Wants(const Event &event) const {
    return (module.empty() || module == event.module()) && (name.empty() || name == event.name());
  }
  void Leave(Core &core) override;
};

/// A handler of what happens to the connection.
struct LinkHandler final : Entry {
  std::uint32_t event = 0;
  Function<void()> run;
  void Leave(Core &core) override;
};

struct GapHandler final : Entry {
  Function<void(const Gap &)> run;
  void Leave(Core &core) override;
};

/// Null when there is no memory. The loop owns the record, which is gone after the last firing.
inline UvTimer *AddTimer(UvLoop *loop, std::uint32_t ms, bool once, UV_TIMER_CALLBACK callback, void *data) {
  auto *const timer = static_cast<UvTimer *>(std::calloc(1, sizeof(UvTimer)));
  if (timer == nullptr || ZOR_UV_TimerInit(loop, timer) != ZOR_OK) {
    std::free(timer);
    return nullptr;
  }
  ZOR_UV_TimerStart(timer, ms, once ? 1 : 0, callback, data);
  return timer;
}

struct Timer final : Entry {
  UvTimer *timer = nullptr;
  bool once = false;
  Function<void()> run;

  std::uint32_t Start(UvLoop *loop, std::chrono::milliseconds interval, bool isOnce) {
    constexpr std::int64_t kLongest = 0x7fffffff;
    const std::int64_t ms = interval.count() < 1 ? 1 : interval.count() > kLongest ? kLongest : interval.count();
    once = isOnce;
    timer = AddTimer(loop, static_cast<std::uint32_t>(ms), once, OnTimer, this);
    return timer == nullptr ? ZOR_E_NO_MEMORY : ZOR_OK;
  }
  void Release() override { ZOR_UTIL_TimerDel(std::exchange(timer, nullptr)); }

 private:
  static void OnTimer(void *data);
};

/// Watches a descriptor that stays the caller's.
struct Watch final : Entry {
  UvIO *io = nullptr;
  Function<void(std::uint32_t)> run;

  std::uint32_t Start(UvLoop *loop, int fd, std::uint32_t events) {
    io = static_cast<UvIO *>(std::calloc(1, sizeof(UvIO)));
    if (io == nullptr) return ZOR_E_NO_MEMORY;
    if (const std::uint32_t status = ZOR_UV_IOInit(loop, io, fd, OnReady); status != ZOR_OK) {
      std::free(std::exchange(io, nullptr));
      return status;
    }
    io->header.data = this;
    return ZOR_UV_IOStart(io, events);
  }
  // Not ZOR_UV_IODelete, which closes the descriptor.
  void Release() override {
    UvIO *const watcher = std::exchange(io, nullptr);
    if (watcher == nullptr) return;
    watcher->header.data = nullptr;
    ZOR_UV_IOStop(watcher, UV_READABLE | UV_WRITABLE | UV_EXCEPTIONAL);
    watcher->fd = -1;
    ZOR_UV_WatcherDelete(&watcher->header);
  }

 private:
  static void OnReady(UvIO *watcher, std::uint32_t event);
};

}  // namespace detail
}  // namespace face
}  // namespace zor

#endif
