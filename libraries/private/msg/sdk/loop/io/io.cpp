// Descriptor watchers: which descriptors the loop waits for.
#include <zor/uv_io.h>

#include <zor/socket.h>
#include <zor/status.h>

#include <algorithm>
#include <array>

#include "base/list.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/io/descriptor_set.h"

static_assert(sizeof(void *) != 4 || sizeof(UvIO) == 28);

namespace zor {
namespace {

constexpr std::uint32_t kAllEvents = UV_READABLE | UV_WRITABLE | UV_EXCEPTIONAL;

struct EventSet {
  std::uint32_t event;
  fd_set UvLoop::*set;
};

constexpr std::array kEventSets = {
    EventSet{UV_READABLE, &UvLoop::readSet},
    EventSet{UV_WRITABLE, &UvLoop::writeSet},
    EventSet{UV_EXCEPTIONAL, &UvLoop::exceptSet},
};

bool OnLoop(const UvIO *watcher) {
  return watcher != nullptr && watcher->header.loop != nullptr;
}

}  // namespace
}  // namespace zor

uint32_t ZOR_UV_IOInit(UvLoop *loop, UvIO *watcher, int32_t fd, UV_IO_CALLBACK callback) {
  if (watcher == nullptr || fd >= FD_SETSIZE) return ZOR_E_ARGUMENT;
  const uint32_t status = ZOR_UV_WatcherInit(loop, &watcher->header, UV_WATCHER_IO);
  if (status != ZOR_OK) return status;
  watcher->fd = fd;
  watcher->events = 0;
  watcher->ioCallback = callback;
  UvLoop &owner = *watcher->header.loop;
  owner.maxFd = std::max(owner.maxFd, fd);
  return ZOR_OK;
}

uint32_t ZOR_UV_IOStart(UvIO *watcher, uint32_t events) {
  if (!zor::OnLoop(watcher)) return ZOR_E_ARGUMENT;
  const uint32_t wanted = events & zor::kAllEvents;
  if ((watcher->events & wanted) == wanted) return ZOR_OK;
  ZOR_UV_WatcherStart(&watcher->header);
  watcher->events |= wanted;
  for (const zor::EventSet &each : zor::kEventSets) {
    if ((wanted & each.event) != 0) zor::AddTo(watcher->header.loop->*each.set, watcher->fd);
  }
  return ZOR_OK;
}

uint32_t ZOR_UV_IOStop(UvIO *watcher, uint32_t events) {
  if (!zor::OnLoop(watcher)) return ZOR_E_ARGUMENT;
  const uint32_t ended = watcher->events & events & zor::kAllEvents;
  watcher->events &= ~ended;
  for (const zor::EventSet &each : zor::kEventSets) {
    if ((ended & each.event) != 0) zor::RemoveFrom(watcher->header.loop->*each.set, watcher->fd);
  }
  return ZOR_OK;
}

uint32_t ZOR_UV_IODelete(UvIO *watcher) {
  const uint32_t status = ZOR_UV_IOStop(watcher, zor::kAllEvents);
  if (status != ZOR_OK) return status;
  ZOR_UTIL_SocketClose(watcher->fd);
  watcher->fd = -1;
  return ZOR_UV_WatcherDelete(&watcher->header);
}

uint32_t ZOR_UV_IOSkipLoop(UvIO *watcher, uint32_t on) {
  if (!zor::OnLoop(watcher)) return ZOR_E_ARGUMENT;
  uint32_t &flags = watcher->header.loop->flags;
  flags = on != 0 ? flags | UV_LOOP_SKIP_PASS : flags & ~UV_LOOP_SKIP_PASS;
  return ZOR_OK;
}

UvIO *ZOR_UV_IOFindByFd(UvLoop *loop, int32_t fd) {
  const UvLoop *searched = zor::LoopOrDefault(loop);
  if (searched == nullptr) return nullptr;
  UvWatcher *found = zor::Find(searched->watchers, [fd](UvWatcher &watcher) {
    return (watcher.flags & UV_WATCHER_IO) != 0 && zor::RecordOf<UvIO>(&watcher).fd == fd;
  });
  return found == nullptr ? nullptr : &zor::RecordOf<UvIO>(found);
}
