#include "sdk/loop/io/forced.h"

#include <zor/status.h>
#include <zor/trace.h>

#include "base/alloc.h"
#include "base/list.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/lag/lag.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

using ForcedEvent = MallocPtr<UvForcedEvent>;

ForcedEvent TakeOff(UvLoop &loop, UvForcedEvent *event) {
  Unlink(loop.forcedEvents, event);
  return ForcedEvent(event);
}

// A deleted watcher no longer wants events, although its record is still there.
bool Deliver(const UvForcedEvent &event) {
  UvIO &watcher = *event.watcher;
  const std::uint32_t flags = watcher.header.flags;
  if ((flags & UV_WATCHER_IO) == 0 || (flags & UV_WATCHER_DELETED) != 0) return false;
  Trace("sockbase", ZOR_TRACE_INFO, "Do sockbase %p evt for fd %d proc %p now ...", static_cast<void *>(&watcher),
        watcher.fd, reinterpret_cast<void *>(watcher.ioCallback));
  if (watcher.ioCallback == nullptr) return false;
  const CallFrame frame(&watcher.header);
  const lag::Span span(ZOR_UV_LAG_DESCRIPTOR, watcher.ioCallback);
  watcher.ioCallback(&watcher, event.events);
  return true;
}

}  // namespace

// Each event leaves the list before its callback: a nested run neither repeats it nor frees it. The number of events is
// fixed beforehand, or a callback that forces itself would never let go.
bool RunForcedEvents(UvLoop &loop) noexcept {
  if (loop.forcedEvents == nullptr) return false;
  bool called = false;
  for (std::uint32_t left = ZOR_UTIL_ListGetCount(&loop.forcedEvents); left > 0; --left) {
    if (loop.forcedEvents == nullptr) break;
    const ForcedEvent event = TakeOff(loop, loop.forcedEvents);
    if (Deliver(*event)) called = true;
  }
  return called;
}

void DropForcedEvent(UvLoop &loop, const UvIO &watcher, std::uint32_t events) noexcept {
  UvForcedEvent *redundant = Find(loop.forcedEvents, [&](const UvForcedEvent &event) {
    return event.watcher == &watcher && event.events == events;
  });
  if (redundant != nullptr) TakeOff(loop, redundant);
}

}  // namespace zor

uint32_t ZOR_UV_IOForcedLoop(UvIO *watcher, uint32_t events) {
  if (watcher == nullptr || watcher->header.loop == nullptr) return ZOR_E_ARGUMENT;
  auto event = zor::GuardedNew<UvForcedEvent>();
  if (event == nullptr) return ZOR_E_NO_MEMORY;
  event->watcher = watcher;
  event->events = events;
  zor::Append(watcher->header.loop->forcedEvents, event.release());
  return ZOR_OK;
}
