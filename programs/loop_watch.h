// Owners of what the library's loop watches for this daemon. The loop frees the records.
#ifndef PROGRAMS_LOOP_WATCH_H
#define PROGRAMS_LOOP_WATCH_H

#include <zor/uv.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>

#include "common/malloc_ptr.h"
#include "common/unique_fd.h"

namespace zor::daemon {

// A descriptor. The callback may close the watch.
class LoopWatch {
 public:
  using Callback = void (*)(void *self, uint32_t event);

  LoopWatch() = default;
  LoopWatch(const LoopWatch &) = delete;
  LoopWatch &operator=(const LoopWatch &) = delete;
  ~LoopWatch() { Close(); }

  bool open() const { return watcher_ != nullptr; }
  int fd() const { return watcher_->fd; }

  // False when memory runs out or select cannot wait for the descriptor.
  bool Open(UniqueFd fd, uint32_t events, Callback callback, void *self) {
    Close();
    MallocPtr<UvIO> watcher(static_cast<UvIO *>(std::calloc(1, sizeof(UvIO))));
    if (watcher == nullptr || ZOR_UV_IOInit(nullptr, watcher.get(), fd.get(), OnEvent) != ZOR_OK) return false;
    fd.release();
    watcher_ = watcher.release();
    watcher_->header.data = this;
    callback_ = callback;
    self_ = self;
    return ZOR_UV_IOStart(watcher_, events) == ZOR_OK;
  }
  void Await(uint32_t event, bool on) {
    if (((watcher_->events & event) != 0) == on) return;
    on ? ZOR_UV_IOStart(watcher_, event) : ZOR_UV_IOStop(watcher_, event);
  }
  // Shuts the descriptor down and closes it.
  void Close() {
    if (watcher_ != nullptr) ZOR_UV_IODelete(watcher_);
    watcher_ = nullptr;
  }

 private:
  static void OnEvent(UvIO *watcher, uint32_t event) {
    auto *watch = static_cast<LoopWatch *>(watcher->header.data);
    watch->callback_(watch->self_, event);
  }

  UvIO *watcher_ = nullptr;
  Callback callback_ = nullptr;
  void *self_ = nullptr;
};

// One time at which to be called; there may be none.
class LoopTimer {
 public:
  using Clock = std::chrono::steady_clock;
  using Callback = void (*)(void *self);

  LoopTimer() = default;
  LoopTimer(const LoopTimer &) = delete;
  LoopTimer &operator=(const LoopTimer &) = delete;
  ~LoopTimer() { ZOR_UTIL_TimerDel(timer_); }

  // Parked. False when memory runs out.
  bool Open(Callback callback, void *self) {
    timer_ = ZOR_UTIL_TimerAdd(0, 0, callback, self);
    return timer_ != nullptr;
  }
  // Calls at that time, and then again and again until it is set anew.
  void Set(Clock::time_point time) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
    ZOR_UTIL_TimerChgPeriod(timer_, static_cast<uint32_t>(std::clamp<int64_t>(left, 1, INT32_MAX)));
    time_ = time;
  }
  void SetSooner(Clock::time_point time) {
    if (time < time_) Set(time);
  }
  void Park() {
    ZOR_UTIL_TimerChgPeriod(timer_, 0);
    time_ = Clock::time_point::max();
  }

 private:
  UvTimer *timer_ = nullptr;
  Clock::time_point time_ = Clock::time_point::max();
};

}  // namespace zor::daemon

#endif
