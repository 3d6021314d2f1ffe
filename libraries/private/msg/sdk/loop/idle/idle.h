#ifndef SDK_LOOP_IDLE_IDLE_H
#define SDK_LOOP_IDLE_IDLE_H

#include <zor/uv_io.h>

namespace zor {

// The idle pass.
void RunIdleHooks(UvLoop &loop) noexcept;

// Starts an idle hook on the main loop unless one with this callback is there. False when it cannot be started.
bool EnsureIdleHook(UV_IDLE_CALLBACK callback) noexcept;

}  // namespace zor

#endif
