// The socket base: descriptor watchers of the default loop with one event procedure each.
#include "sdk/sockutil/sockbase.h"

#include <zor/status.h>

#include "base/alloc.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/lag/lag.h"

namespace zor {
namespace {

constexpr std::uint32_t kAllEvents = UV_READABLE | UV_WRITABLE | UV_EXCEPTIONAL;

void Dispatch(UvIO *watcher, std::uint32_t event) {
  auto *sockBase = &RecordOf<SockBase>(&watcher->header);
  if (sockBase->eventProc == nullptr) return;
  const lag::Span span(ZOR_UV_LAG_DESCRIPTOR, sockBase->eventProc);
  sockBase->eventProc(sockBase, event);
}

UvIO *IoOf(SockBase *sockBase) {
  return sockBase == nullptr ? nullptr : &sockBase->io;
}

// Mode 0 starts reading only to stop it again, which leaves a started watcher with no events.
void ApplyFirstMode(SockBase *sockBase, std::uint32_t mode) {
  if (mode == ZOR_SOCK_MODE_NONE || mode == ZOR_SOCK_MODE_READ) {
    ZOR_UV_IOStart(&sockBase->io, UV_READABLE);
    ZOR_UTIL_SockBaseListen(sockBase, mode);
  } else {
    ZOR_UV_IOStart(&sockBase->io, mode == ZOR_SOCK_MODE_WRITE ? UV_WRITABLE : UV_EXCEPTIONAL);
  }
}

}  // namespace

std::uint32_t RegisterSockBase(UvLoop &loop, std::int32_t fd, SOCK_EVENT_PROC eventProc, std::uint32_t mode, void *data,
                               SockBase **outSockBase) noexcept {
  if (outSockBase != nullptr) *outSockBase = nullptr;
  auto owned = GuardedNew<SockBase>();
  if (owned == nullptr) return ZOR_E_NO_MEMORY;
  const std::uint32_t status = ZOR_UV_IOInit(&loop, &owned->io, fd, Dispatch);
  if (status != ZOR_OK) return status;
  SockBase *sockBase = owned.release();
  sockBase->io.header.flags |= UV_WATCHER_SOCKBASE;
  sockBase->io.header.data = data;
  sockBase->eventProc = eventProc;
  ApplyFirstMode(sockBase, mode);
  if (outSockBase != nullptr) *outSockBase = sockBase;
  return ZOR_OK;
}

}  // namespace zor

uint32_t ZOR_UTIL_SockBaseReg(int32_t fd, uintptr_t, SOCK_EVENT_PROC eventProc, uint32_t mode, void *data,
                              SockBase **outSockBase) {
  return zor::RegisterSockBase(*ZOR_UV_LoopGetDefault(), fd, eventProc, mode, data, outSockBase);
}

uint32_t ZOR_UTIL_SockBaseListen(SockBase *sockBase, uint32_t mode) {
  if (sockBase == nullptr || sockBase->io.fd < 0) return ZOR_OK;
  const uint32_t status = ZOR_UV_IOStop(&sockBase->io, zor::kAllEvents);
  if (mode == ZOR_SOCK_MODE_READ) return ZOR_UV_IOStart(&sockBase->io, UV_READABLE);
  if (mode == ZOR_SOCK_MODE_WRITE) return ZOR_UV_IOStart(&sockBase->io, UV_WRITABLE);
  return status;
}

uint32_t ZOR_UTIL_SetWriteFd(SockBase *sockBase) {
  return ZOR_UV_IOStart(zor::IoOf(sockBase), UV_WRITABLE);
}

uint32_t ZOR_UTIL_ClearWriteFd(SockBase *sockBase) {
  return ZOR_UV_IOStop(zor::IoOf(sockBase), UV_WRITABLE);
}

uint32_t ZOR_UTIL_SockBaseDirectDo(SockBase *sockBase) {
  return ZOR_UV_IOForcedLoop(zor::IoOf(sockBase), UV_READABLE);
}

uint32_t ZOR_UTIL_SockBaseForceLoop(SockBase *sockBase) {
  if (sockBase != nullptr && sockBase->io.fd < 0) return ZOR_OK;
  return ZOR_UTIL_SockBaseDirectDo(sockBase);
}

void ZOR_UTIL_SockBaseDelete(SockBase *sockBase) {
  if (sockBase == nullptr) return;
  ZOR_UTIL_SockBaseListen(sockBase, ZOR_SOCK_MODE_NONE);
  ZOR_UV_IOSkipLoop(&sockBase->io, 1);
  ZOR_UV_IODelete(&sockBase->io);
}

void ZOR_UTIL_SockBaseDeleteNew(int32_t fd) {
  if (fd < 0) return;
  UvIO *watcher = ZOR_UV_IOFindByFd(nullptr, fd);
  if (watcher == nullptr || (watcher->header.flags & UV_WATCHER_SOCKBASE) == 0) return;
  ZOR_UTIL_SockBaseDelete(&zor::RecordOf<SockBase>(&watcher->header));
}

uint32_t ZOR_UTIL_SockBaseStart(uint32_t seconds) {
  return ZOR_UV_LoopRun(nullptr, seconds * 1000);
}

void ZOR_UTIL_SockBaseDestroy(void) {}

uint32_t ZOR_UTIL_SockBaseRegEvtProc(const void *) {
  return ZOR_OK;
}
