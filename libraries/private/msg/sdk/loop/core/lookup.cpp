#include "sdk/loop/core/lookup.h"

#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"

namespace zor {
namespace {

template <class Predicate>
bool AnyOnLoop(UvLoop *loop, Predicate matches) noexcept {
  struct Search {
    Predicate &matches;
    bool found;
  };
  Search search = {matches, false};
  ZOR_UV_WatcherIterateItem(loop, &search, [](UvWatcher *watcher, void *arg) {
    auto &state = *static_cast<Search *>(arg);
    state.found = state.found || state.matches(watcher);
  });
  return search.found;
}

}  // namespace

bool IsOnLoop(UvLoop *loop, const UvWatcher *watcher) noexcept {
  return AnyOnLoop(loop, [watcher](const UvWatcher *listed) { return listed == watcher; });
}

bool EnsureIdleHook(UV_IDLE_CALLBACK callback) noexcept {
  const bool present = AnyOnLoop(&MainLoop(), [callback](UvWatcher *listed) {
    const bool isHook = (listed->flags & (UV_WATCHER_IDLE | UV_WATCHER_DELETED)) == UV_WATCHER_IDLE;
    return isHook && RecordOf<UvIdle>(listed).idleCallback == callback;
  });
  return present || ZOR_UV_IdleStart(&MainLoop(), callback) != nullptr;
}

}  // namespace zor
