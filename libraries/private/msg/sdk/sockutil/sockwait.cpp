// Asynchronous waits: one response on a socket, or the time-out.
#include <zor/sockbase.h>

#include "base/alloc.h"
#include "sdk/loop/core/watcher.h"

static_assert(sizeof(void *) != 4 || sizeof(SockAsyncWait) == 20);

namespace zor {
namespace {

// The procedure normally destroys the wait, so nothing is touched after the call. The event says nothing: the procedure
// looks at the wait.
void OnWaitTimeOut(void *data) {
  auto *wait = static_cast<SockAsyncWait *>(data);
  wait->timedOut = 1;
  wait->timer = nullptr;
  SockBase *sockBase = wait->sockBase;
  if (sockBase == nullptr || sockBase->eventProc == nullptr) return;
  const CallFrame frame(&sockBase->io.header);
  sockBase->eventProc(sockBase, 0);
}

}  // namespace
}  // namespace zor

SockAsyncWait *ZOR_UTIL_SockbaseWaitSockResponseAsync(int32_t fd, uintptr_t unused, uint32_t timeoutMs, void *userData,
                                                      SOCK_EVENT_PROC eventProc) {
  auto wait = zor::GuardedNew<SockAsyncWait>();
  if (wait == nullptr) return nullptr;
  wait->userData = userData;
  if (ZOR_UTIL_SockBaseReg(fd, unused, eventProc, ZOR_SOCK_MODE_READ, wait.get(), &wait->sockBase) != 0) return nullptr;
  wait->timer = ZOR_UTIL_TimerAdd(timeoutMs, 1, zor::OnWaitTimeOut, wait.get());
  return wait.release();
}

void ZOR_UTIL_SockbaseAsyncEvtDestroy(SockAsyncWait *wait) {
  const zor::MallocPtr<SockAsyncWait> ended(wait);
  if (wait == nullptr) return;
  ZOR_UTIL_TimerDel(wait->timer);
  wait->timer = nullptr;
  // The record of the socket base outlives the wait until the sweep.
  if (wait->sockBase != nullptr) wait->sockBase->io.header.data = nullptr;
  ZOR_UTIL_SockBaseDelete(wait->sockBase);
}
