// The default loop in a test's own thread. For executables that link the library.
#ifndef TESTS_SUPPORT_LOOP_H
#define TESTS_SUPPORT_LOOP_H

#include <zor/uv.h>

#include <functional>
#include <string>
#include <vector>

#include "support/child.h"

namespace zor::test {

// The idle hooks and the timers that are still active.
inline std::vector<std::string> OnLoop() {
  std::vector<std::string> found;
  ZOR_UV_WatcherIterateItem(nullptr, &found, [](UvWatcher *watcher, void *arg) {
    auto &out = *static_cast<std::vector<std::string> *>(arg);
    const auto *timer = static_cast<const UvTimer *>(static_cast<const void *>(watcher));
    if ((watcher->flags & UV_WATCHER_IDLE) != 0) out.emplace_back("hook");
    if ((watcher->flags & UV_WATCHER_TIMER) == 0 || timer->callback == nullptr) return;
    out.push_back("every " + std::to_string(timer->intervalMs));
  });
  return found;
}

// Runs the loop until the condition holds; false when a busy machine would have been in time.
inline bool RunLoopUntil(const std::function<bool()> &condition) {
  return WaitUntil([&condition] {
    const auto stop = [](void *) { ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault()); };
    ZOR_UTIL_TimerAdd(10, 1, stop, nullptr);
    ZOR_UV_LoopRun(nullptr, 0);
    return condition();
  });
}

}  // namespace zor::test

#endif
