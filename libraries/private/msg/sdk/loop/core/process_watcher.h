// Children on the watcher list, as the wait and the handler of SIGCHLD look for them. Async-signal-safe, unlike the
// walks of the loop.
#ifndef SDK_LOOP_CORE_PROCESS_WATCHER_H
#define SDK_LOOP_CORE_PROCESS_WATCHER_H

#include <zor/uv_process.h>

#include "sdk/loop/core/watcher.h"

namespace zor {

inline bool IsProcess(const UvWatcher &watcher) noexcept {
  return (watcher.flags & UV_WATCHER_PROCESS) != 0;
}

template <class Predicate>
UvProcess *FindProcess(const UvLoop &loop, Predicate matches) noexcept {
  for (UvWatcher *watcher = loop.watchers; watcher != nullptr; watcher = watcher->next) {
    if (IsProcess(*watcher) && matches(RecordOf<UvProcess>(watcher))) return &RecordOf<UvProcess>(watcher);
  }
  return nullptr;
}

// Whether a child of the loop has been reaped and waits for the idle pass to finish it.
inline bool HasReapedChild(const UvLoop &loop) noexcept {
  if (&loop != ZOR_UV_LoopGetDefault()) return false;
  return FindProcess(loop, [](const UvProcess &process) { return process.exited != 0; }) != nullptr;
}

}  // namespace zor

#endif
