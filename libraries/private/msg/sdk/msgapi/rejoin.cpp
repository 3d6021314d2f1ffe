#include "sdk/msgapi/rejoin.h"

#include <fcntl.h>
#include <unistd.h>
#include <zor/limits.h>
#include <zor/msg_rejoin.h>
#include <zor/platform/system.h>
#include <zor/status.h>
#include <zor/trace.h>
#include <zor/uv_timer.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/text.h"
#include "message/context.h"
#include "sdk/loop/core/clock.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/message/msg_watcher.h"
#include "sdk/loop/timer/timer.h"
#include "sdk/msgapi/bus_watcher.h"
#include "sdk/msgapi/join_attempt.h"
#include "sdk/msgapi/registration.h"
#include "sdk/msgapi/standing.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

struct Link {
  pid_t owner;  // a forked child has a copy of all this, but the connection is its parent's
  bool lost;
  ZOR_MSG_LINK_PROC proc;
  void *procData;
  ZOR_MSG_REJOIN times;
  std::uint32_t pauseMs;  // the latest, before a part of it was taken off; 0: none since the connection was good
  UvTime since;           // when the connection was made
  UvTimer *timer;         // runs in a pause and while a reply is awaited; null: lost connections stay lost
};

constinit Link busLink = {};

bool IsOurs() {
  return busLink.owner == ::getpid();
}

// Destroying the loop frees the timer.
bool IsRejoinEnabled() {
  return IsOurs() && busLink.timer != nullptr && IsOnLoop(MainLoop(), &busLink.timer->header);
}

void Tell(std::uint32_t event) {
  if (IsOurs() && busLink.proc != nullptr) busLink.proc(event, busLink.procData);
}

// The watcher of a connection of ZOR_MSG_Init; null for any other, also for one to another board, which is not on the
// loop.
UvMsgWatcher *WatcherOfConnection() {
  UvMsgWatcher *watcher = LiveBusWatcher();
  return watcher != nullptr && g_stMsgCtx.socketFd >= 0 && watcher->io.fd == g_stMsgCtx.socketFd ? watcher : nullptr;
}

bool HasOutlastedItsPause() {
  const UvTime soonest = After(busLink.since, busLink.pauseMs);
  const UvTime now = MonotonicNow();
  return now.seconds > soonest.seconds || (now.seconds == soonest.seconds && now.microseconds >= soonest.microseconds);
}

// The daemons of a system lose their server together; the random part keeps them from coming back together.
void Pause() {
  const ZOR_MSG_REJOIN &times = busLink.times;
  busLink.pauseMs = busLink.pauseMs == 0                         ? times.firstPauseMs
                    : busLink.pauseMs > times.longestPauseMs / 2 ? times.longestPauseMs
                                                                 : busLink.pauseMs * 2;
  const std::uint32_t half = busLink.pauseMs / 2;
  const std::uint32_t pauseMs = busLink.pauseMs - ZOR_UTIL_GenRandomInteger() % (half + 1);
  Trace("msg", ZOR_TRACE_INFO, "Join the bus again in %u ms.", pauseMs);
  ZOR_UTIL_TimerChgPeriod(busLink.timer, pauseMs);
}

bool TakeOver(UniqueFd fd) {
  UvMsgWatcher *watcher = WatcherOfConnection();
  if (watcher == nullptr) return false;
  int result;
  do {
    result = ::dup3(fd.get(), g_stMsgCtx.socketFd, O_CLOEXEC);
  } while (result < 0 && (errno == EINTR || errno == EBUSY));
  return result >= 0 && ZOR_UV_IOStart(&watcher->io, UV_READABLE) == ZOR_OK;
}

// Standing requests are sent before the connection replaces the old one: an attempt that fails halfway leaves no trace
// here, and the server forgets it with its connection.
void OnJoined(UniqueFd fd, MessagePtr reply) noexcept {
  if (reply == nullptr) return Pause();
  if (NameView(reply->destination) != NameView(g_stMsgCtx.appName)) {
    Pause();
    return Tell(ZOR_MSG_LINK_REFUSED);
  }
  SetPeerByteOrder(*reply);
  if (RepeatStanding(fd.get()) != ZOR_OK || !TakeOver(std::move(fd))) return Pause();
  ZOR_UTIL_TimerChgPeriod(busLink.timer, 0);
  busLink.lost = false;
  busLink.since = MonotonicNow();
  ApplySettings(*reply);
  Tell(ZOR_MSG_LINK_REJOINED);
}

// The end of a pause, or of the wait for a reply.
void OnTimer(void *) {
  if (!IsOurs()) return ZOR_UTIL_TimerChgPeriod(busLink.timer, 0);
  if (IsJoining()) {
    CancelJoin();
    return Pause();
  }
  if (!StartJoin(OnJoined)) return Pause();
  ZOR_UTIL_TimerChgPeriod(busLink.timer, busLink.times.replyWaitMs);
}

// Makes this process the one that is notified and connects. An end of file that was read before this call is read
// again.
void Adopt(UvMsgWatcher &watcher) {
  if (!IsOurs()) {
    StopRejoin();
    busLink.owner = ::getpid();
  }
  if (!busLink.lost) ZOR_UV_IOStart(&watcher.io, UV_READABLE);
}

std::uint32_t Choose(std::uint32_t wanted, std::uint32_t otherwise) {
  constexpr std::uint32_t kLongest = 0x7fffffff;
  return wanted == 0 ? otherwise : std::min(wanted, kLongest);
}

}  // namespace

void OnConnectionEnded(UvMsgWatcher &watcher) noexcept {
  if (!IsOurs() || busLink.lost) return;
  busLink.lost = true;
  const bool rejoins = IsRejoinEnabled();
  if (rejoins) {
    if (HasOutlastedItsPause()) busLink.pauseMs = 0;
    Pause();
  }
  Tell(ZOR_MSG_LINK_LOST);
  if (rejoins) EndPendingReplies(watcher, ZOR_E_PEER_GONE);
}

void StopRejoin() noexcept {
  CancelJoin();
  if (busLink.timer != nullptr && IsOnLoop(MainLoop(), &busLink.timer->header)) ZOR_UTIL_TimerDel(busLink.timer);
  busLink = {};
}

}  // namespace zor

uint32_t ZOR_MSG_SetLinkProc(ZOR_MSG_LINK_PROC proc, void *data) {
  UvMsgWatcher *watcher = zor::WatcherOfConnection();
  if (watcher == nullptr) return ZOR_E_NOT_CONNECTED;
  zor::Adopt(*watcher);
  zor::busLink.proc = proc;
  zor::busLink.procData = data;
  return ZOR_OK;
}

uint32_t ZOR_MSG_EnableRejoin(const ZOR_MSG_REJOIN *settings) {
  UvMsgWatcher *watcher = zor::WatcherOfConnection();
  if (watcher == nullptr) return ZOR_E_NOT_CONNECTED;
  const ZOR_MSG_REJOIN wanted = settings != nullptr ? *settings : ZOR_MSG_REJOIN{};
  const ZOR_MSG_REJOIN times = {zor::Choose(wanted.firstPauseMs, ZOR_MSG_REJOIN_FIRST_PAUSE_MS),
                                zor::Choose(wanted.longestPauseMs, ZOR_MSG_REJOIN_LONGEST_PAUSE_MS),
                                zor::Choose(wanted.replyWaitMs, ZOR_MSG_REJOIN_REPLY_WAIT_MS)};
  if (times.longestPauseMs < times.firstPauseMs) return ZOR_E_ARGUMENT;
  zor::Adopt(*watcher);
  zor::busLink.times = times;
  if (zor::IsRejoinEnabled()) return ZOR_OK;
  zor::busLink.timer = zor::AddTimer(&zor::MainLoop(), 0, 0, zor::OnTimer, nullptr);
  if (zor::busLink.timer == nullptr) return ZOR_E_NO_MEMORY;
  if (zor::busLink.lost) zor::Pause();
  return ZOR_OK;
}
