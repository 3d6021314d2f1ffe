// The loop record and which loop is meant. Nothing here runs a loop: that is sdk/loop/run.
#ifndef SDK_LOOP_CORE_LOOP_H
#define SDK_LOOP_CORE_LOOP_H

#include <zor/uv_loop.h>

namespace zor {

// While set, this loop is the default loop: a synchronous spawn runs a private loop.
extern UvLoop *defaultLoopOverride;

// The process's own default loop, also during a synchronous spawn: for what outlives the spawn.
UvLoop &MainLoop() noexcept;

// Null stands for the default loop.
inline UvLoop *LoopOrDefault(UvLoop *loop) noexcept {
  return loop != nullptr ? loop : ZOR_UV_LoopGetDefault();
}

}  // namespace zor

#endif
