// Idle hooks: called in every iteration, before the wait.
#include "sdk/loop/idle/idle.h"

#include <zor/status.h>

#include "base/alloc.h"
#include "base/list.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/lag/lag.h"

namespace zor {

// Neither the started nor the deleted bit is looked at: a deleted hook runs until it is swept.
void RunIdleHooks(UvLoop &loop) noexcept {
  for (Walk walk(loop); UvWatcher *watcher = walk.Next();) {
    if ((watcher->flags & UV_WATCHER_IDLE) == 0) continue;
    auto &hook = RecordOf<UvIdle>(watcher);
    if (hook.idleCallback == nullptr) continue;
    const CallFrame frame(watcher);
    const lag::Span span(ZOR_UV_LAG_IDLE, hook.idleCallback);
    hook.idleCallback(&hook, watcher->flags);
  }
}

bool EnsureIdleHook(UV_IDLE_CALLBACK callback) noexcept {
  const UvWatcher *present = Find(MainLoop().watchers, [callback](UvWatcher &listed) {
    const bool isHook = (listed.flags & (UV_WATCHER_IDLE | UV_WATCHER_DELETED)) == UV_WATCHER_IDLE;
    return isHook && RecordOf<UvIdle>(&listed).idleCallback == callback;
  });
  return present != nullptr || ZOR_UV_IdleStart(&MainLoop(), callback) != nullptr;
}

}  // namespace zor

uint32_t ZOR_UV_IdleInit(UvLoop *loop, UvIdle *watcher) {
  if (watcher == nullptr) return ZOR_E_ARGUMENT;
  const uint32_t status = ZOR_UV_WatcherInit(loop, &watcher->header, UV_WATCHER_IDLE);
  if (status == ZOR_OK) watcher->idleCallback = nullptr;
  return status;
}

UvIdle *ZOR_UV_IdleStart(UvLoop *loop, UV_IDLE_CALLBACK callback) {
  if (callback == nullptr) return nullptr;
  auto hook = zor::GuardedNew<UvIdle>();
  if (hook == nullptr || ZOR_UV_IdleInit(loop, hook.get()) != ZOR_OK) return nullptr;
  hook->idleCallback = callback;
  ZOR_UV_WatcherStart(&hook->header);
  return hook.release();
}

uint32_t ZOR_UV_IdleStop(UvIdle *watcher) {
  return watcher == nullptr ? ZOR_E_ARGUMENT : ZOR_UV_WatcherDelete(&watcher->header);
}
