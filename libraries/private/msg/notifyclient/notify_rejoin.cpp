#include "notifyclient/notify_rejoin.h"

#include <unistd.h>
#include <zor/notify_rejoin.h>
#include <zor/trace.h>
#include <zor/uv_timer.h>

#include <cstdint>
#include <utility>

#include "notifyclient/notify_connect.h"
#include "notifyclient/notify_dispatch.h"
#include "notifyclient/notify_state.h"
#include "notifyclient/notify_transfer.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/lag/lag.h"
#include "sdk/loop/timer/retry_pauses.h"
#include "sdk/loop/timer/timer.h"
#include "trace/trace_line.h"

namespace zor::notify {
namespace {

// Long enough for the loop to run it as a timer of its own.
constexpr std::uint32_t kAtOnceMs = 1;

struct Link {
  pid_t owner;  // a forked child has a copy of all this, but the connection is its parent's
  ZOR_NOTIFYCLT_LINK_PROC proc;
  void *procData;
  bool rejoins;
  bool untold;  // the end of the connection is still to be reported
  RetryPauses pauses;
  UvTimer *timer;  // until the end is reported, and in a pause
};

constinit Link notifyLink = {};

// Destroying the loop frees the timer.
bool HasTimer() {
  return notifyLink.timer != nullptr && IsOnLoop(MainLoop(), &notifyLink.timer->header);
}

bool IsAsked() {
  return notifyLink.owner == ::getpid() && HasTimer();
}

void Call(const Link &link, std::uint32_t event) {
  if (link.proc == nullptr) return;
  const lag::Span span(ZOR_UV_LAG_NOTIFICATION, link.proc);
  link.proc(event, link.procData);
}

void Tell(std::uint32_t event) {
  Call(notifyLink, event);
}

void Pause() {
  const std::uint32_t pauseMs = notifyLink.pauses.NextMs();
  Trace(kTraceModule, ZOR_TRACE_INFO, "Connect to notify server again in %u ms.", pauseMs);
  ZOR_UTIL_TimerChgPeriod(notifyLink.timer, pauseMs);
}

bool Rejoin() {
  UniqueFd fd = ConnectAtOnce();
  return fd.valid() && SendRegistration(fd.get()) == ZOR_NOTIFY_OK && Restore(std::move(fd), OnReadable);
}

// The daemon may do anything in its procedure, so calling it comes last.
void TellOfEnd() {
  notifyLink.untold = false;
  if (!notifyLink.rejoins) {
    const Link ended = notifyLink;
    StopRejoin();
    Call(ended, ZOR_NOTIFYCLT_LINK_LOST);
    return;
  }
  if (g_stClient.lost) Pause();
  Tell(ZOR_NOTIFYCLT_LINK_LOST);
}

void OnTimer(void *) {
  ZOR_UTIL_TimerChgPeriod(notifyLink.timer, 0);
  if (!IsAsked()) return;
  if (notifyLink.untold) return TellOfEnd();
  if (!Rejoin()) return Pause();
  notifyLink.pauses.OnConnected();
  Tell(ZOR_NOTIFYCLT_LINK_REJOINED);
}

// Whether the client is registered, or will be again.
bool IsJoined() {
  return g_stClient.lost || (g_stClient.mid != 0 && IsWatched());
}

// Makes this process the one that is notified and connects. False without memory.
bool Adopt() {
  if (notifyLink.owner != ::getpid()) {
    StopRejoin();
    notifyLink.owner = ::getpid();
  }
  if (!HasTimer()) notifyLink.timer = AddTimer(&MainLoop(), 0, 0, OnTimer, nullptr);
  return notifyLink.timer != nullptr;
}

}  // namespace

void OnConnectionEnded() noexcept {
  if (!IsAsked()) return Destroy();
  notifyLink.untold = true;
  notifyLink.pauses.OnLost();
  ZOR_UTIL_TimerChgPeriod(notifyLink.timer, kAtOnceMs);
  if (!notifyLink.rejoins) return Destroy();
  Disconnect();
}

void OnSwitched() noexcept {
  if (IsAsked() && !notifyLink.untold) ZOR_UTIL_TimerChgPeriod(notifyLink.timer, 0);
}

void StopRejoin() noexcept {
  if (HasTimer()) ZOR_UTIL_TimerDel(notifyLink.timer);
  notifyLink = {};
}

}  // namespace zor::notify

using namespace zor::notify;

uint32_t ZOR_NOTIFYCLT_SetLinkProc(ZOR_NOTIFYCLT_LINK_PROC proc, void *data) {
  if (!IsJoined()) return ZOR_NOTIFY_E_NOT_WRITABLE;
  if (!Adopt()) return ZOR_NOTIFY_E_NO_MEMORY;
  notifyLink.proc = proc;
  notifyLink.procData = data;
  return ZOR_NOTIFY_OK;
}

uint32_t ZOR_NOTIFYCLT_EnableRejoin(const ZOR_MSG_REJOIN *settings) {
  if (!IsJoined()) return ZOR_NOTIFY_E_NOT_WRITABLE;
  const auto times = zor::ChooseRejoinTimes(settings);
  if (!times) return ZOR_NOTIFY_E_ARGUMENT;
  if (!Adopt()) return ZOR_NOTIFY_E_NO_MEMORY;
  notifyLink.pauses.times = *times;
  notifyLink.rejoins = true;
  return ZOR_NOTIFY_OK;
}
