#include "sdk/loop/core/watcher.h"

#include <zor/status.h>
#include <zor/trace.h>

#include <atomic>
#include <cstdlib>

#include "base/list.h"
#include "sdk/loop/core/loop.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

// Whatever the kind of the watcher: queueing an event does not check it.
void DropForcedEvents(UvLoop &loop, const UvWatcher *watcher) {
  for (UvForcedEvent *event : ListView<UvForcedEvent>(loop.forcedEvents)) {
    if (&event->watcher->header == watcher) ZOR_UTIL_ListDeleteItem(&loop.forcedEvents, event, nullptr);
  }
}

// Atomic because threads run loops of their own.
constinit std::atomic<UnlinkHook> unlinkHook = nullptr;

}  // namespace

constinit thread_local Walk *Walk::innermost_ = nullptr;
constinit thread_local CallFrame *CallFrame::innermost_ = nullptr;
constinit thread_local std::uint64_t listChanges = 0;

static_assert(sizeof(void *) != 4 || sizeof(UvWatcher) == 16);

void Walk::OnUnlink(const UvWatcher *watcher) noexcept {
  for (Walk *walk = innermost_; walk != nullptr; walk = walk->outer_) {
    if (walk->next_ == watcher) walk->next_ = watcher->next;
  }
}

void Walk::OnAppend(UvWatcher *watcher) noexcept {
  for (Walk *walk = innermost_; walk != nullptr; walk = walk->outer_) {
    if (walk->next_ == nullptr && walk->growing_ == watcher->loop) walk->next_ = watcher;
  }
}

CallFrame::~CallFrame() {
  innermost_ = outer_;
  if (freed_) Free(watcher_);
}

CallFrame *CallFrame::Find(const UvWatcher *watcher) noexcept {
  CallFrame *frame = innermost_;
  while (frame != nullptr && frame->watcher_ != watcher) frame = frame->outer_;
  return frame;
}

void CallFrame::Free(UvWatcher *watcher) noexcept {
  if (CallFrame *frame = Find(watcher); frame != nullptr) {
    frame->freed_ = true;
  } else {
    std::free(watcher);
  }
}

void SetUnlinkHook(UnlinkHook hook) noexcept {
  unlinkHook.store(hook, std::memory_order_relaxed);
}

bool IsOnLoop(const UvLoop &loop, const UvWatcher *watcher) noexcept {
  return Find(loop.watchers, [watcher](const UvWatcher &listed) { return &listed == watcher; }) != nullptr;
}

void RemoveWatcher(UvLoop &loop, UvWatcher *watcher) noexcept {
  Walk::OnUnlink(watcher);
  Unlink(loop.watchers, watcher);
  if (const UnlinkHook hook = unlinkHook.load(std::memory_order_relaxed); hook != nullptr) hook(*watcher);
  DropForcedEvents(loop, watcher);
  CallFrame::Free(watcher);
}

void SweepWatcher(UvLoop &loop, UvWatcher *watcher) noexcept {
  Trace("loop", ZOR_TRACE_DEBUG, "Delete handle %p with flag %x data %p now ...", static_cast<void *>(watcher),
        watcher->flags, watcher->data);
  RemoveWatcher(loop, watcher);
}

}  // namespace zor

uint32_t ZOR_UV_WatcherInit(UvLoop *loop, UvWatcher *watcher, uint32_t kind) {
  UvLoop *owner = zor::LoopOrDefault(loop);
  if (watcher == nullptr || owner == nullptr) return ZOR_E_ARGUMENT;
  *watcher = {nullptr, owner, kind | UV_WATCHER_LISTED, nullptr};
  zor::Append(owner->watchers, watcher);
  zor::Walk::OnAppend(watcher);
  ++zor::listChanges;
  return ZOR_OK;
}

uint32_t ZOR_UV_WatcherStart(UvWatcher *watcher) {
  if (watcher == nullptr) return ZOR_E_ARGUMENT;
  if ((watcher->flags & UV_WATCHER_ACTIVE) != 0) return ZOR_OK;
  watcher->flags = (watcher->flags | UV_WATCHER_ACTIVE) & ~UV_WATCHER_DELETED;
  if ((watcher->flags & UV_WATCHER_LISTED) != 0) ++watcher->loop->activeCount;
  return ZOR_OK;
}

uint32_t ZOR_UV_WatcherDelete(UvWatcher *watcher) {
  if (watcher == nullptr) return ZOR_E_ARGUMENT;
  const bool counted = (watcher->flags & UV_WATCHER_ACTIVE) != 0 && (watcher->flags & UV_WATCHER_LISTED) != 0;
  if (counted) --watcher->loop->activeCount;
  ++zor::listChanges;
  watcher->flags = (watcher->flags | UV_WATCHER_DELETED) & ~UV_WATCHER_ACTIVE;
  return ZOR_OK;
}

uint32_t ZOR_UV_WatcherIterateItem(UvLoop *loop, void *arg, UV_WATCHER_VISITOR visitor) {
  const UvLoop *visited = zor::LoopOrDefault(loop);
  if (visited == nullptr) return ZOR_E_ARGUMENT;
  if (visitor == nullptr) return ZOR_E_IO;
  for (zor::Walk walk(*visited); UvWatcher *watcher = walk.Next();) visitor(watcher, arg);
  return ZOR_OK;
}
