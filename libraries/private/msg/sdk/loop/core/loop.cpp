// The loop record, its accessors and the default loop.
#include "sdk/loop/core/loop.h"

#include <zor/status.h>

namespace zor {

UvLoop *defaultLoopOverride = nullptr;

UvLoop &MainLoop() noexcept {
  static UvLoop loop;
  if ((loop.flags & UV_LOOP_INITIALISED) == 0) ZOR_UV_LoopInit(&loop);
  return loop;
}

}  // namespace zor

void ZOR_UV_LoopInit(UvLoop *loop) {
  if (loop == nullptr) return;
  *loop = {};
  loop->flags = UV_LOOP_INITIALISED;
}

UvLoop *ZOR_UV_LoopGetDefault(void) {
  return zor::defaultLoopOverride != nullptr ? zor::defaultLoopOverride : &zor::MainLoop();
}

void ZOR_UV_LoopStop(UvLoop *loop) {
  if (loop != nullptr) loop->flags |= UV_LOOP_STOP;
}

// Not a minimum of the two times: callers rely on each field being lowered by itself.
void ZOR_UV_LoopUpdateSelectTimeout(UvLoop *loop, const UvTime *timeout) {
  UvLoop *updated = zor::LoopOrDefault(loop);
  if (updated == nullptr || timeout == nullptr) return;
  UvTime &pending = updated->selectTimeout;
  if (timeout->seconds < pending.seconds) {
    pending = *timeout;
  } else if (timeout->microseconds < pending.microseconds) {
    pending.microseconds = timeout->microseconds;
  }
}

void ZOR_UV_LoopSetIdleTime(UvLoop *loop, uint32_t idleTimeMs) {
  if (UvLoop *changed = zor::LoopOrDefault(loop); changed != nullptr) changed->idleTimeMs = idleTimeMs;
}

uint32_t ZOR_UV_LoopGetIdleTime(UvLoop *loop) {
  const UvLoop *asked = zor::LoopOrDefault(loop);
  return asked == nullptr ? 0 : asked->idleTimeMs;
}

int32_t ZOR_UV_LoopGetMaxFd(UvLoop *loop) {
  const UvLoop *asked = zor::LoopOrDefault(loop);
  return asked == nullptr ? 0 : asked->maxFd;
}

uint64_t ZOR_UV_LoopGetCurIdx(UvLoop *loop) {
  const UvLoop *asked = zor::LoopOrDefault(loop);
  return asked == nullptr ? 0 : asked->iteration;
}
