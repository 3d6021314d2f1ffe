// Finds watchers on a loop. Destroying a loop frees its watchers without notifying their owners, so an owner searches
// the loop: an address that it remembers may dangle.
#ifndef SDK_LOOP_CORE_LOOKUP_H
#define SDK_LOOP_CORE_LOOKUP_H

#include <zor/uv_io.h>

namespace zor {

// Whether the watcher is still on the loop.
bool IsOnLoop(UvLoop *loop, const UvWatcher *watcher) noexcept;

// Starts an idle hook on the main loop unless one with this callback is there. False when it cannot be started.
bool EnsureIdleHook(UV_IDLE_CALLBACK callback) noexcept;

}  // namespace zor

#endif
