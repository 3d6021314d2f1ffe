#include "sdk/msgapi/rejoin.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/msg_rejoin.h>
#include <zor/status.h>
#include <zor/trace.h>
#include <zor/uv_timer.h>

#include <array>
#include <cerrno>
#include <utility>

#include "base/text.h"
#include "message/context.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/idle/idle.h"
#include "sdk/loop/lag/lag.h"
#include "sdk/loop/message/msg_watcher.h"
#include "sdk/loop/timer/retry_pauses.h"
#include "sdk/loop/timer/timer.h"
#include "sdk/msgapi/bus_watcher.h"
#include "sdk/msgapi/connect.h"
#include "sdk/msgapi/join_attempt.h"
#include "sdk/msgapi/queue.h"
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
  RetryPauses pauses;
  UvTimer *timer;  // runs in a pause and while a reply is awaited; null: lost connections stay lost
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
  if (!IsOurs() || busLink.proc == nullptr) return;
  const lag::Span span(ZOR_UV_LAG_NOTIFICATION, busLink.proc);
  busLink.proc(event, busLink.procData);
}

// Null when the loop does not watch the connection.
UvMsgWatcher *WatcherOfConnection() {
  UvMsgWatcher *watcher = LiveBusWatcher();
  return watcher != nullptr && g_stMsgCtx.socketFd >= 0 && watcher->io.fd == g_stMsgCtx.socketFd ? watcher : nullptr;
}

void Pause() {
  const std::uint32_t pauseMs = busLink.pauses.NextMs();
  Trace("msg", ZOR_TRACE_INFO, "Join the bus again in %u ms.", pauseMs);
  ZOR_UTIL_TimerChgPeriod(busLink.timer, pauseMs);
}

// The loop does not read a connection to another board until it has to notice its end.
std::uint32_t WatchConnection() {
  if (g_stMsgCtx.socketFd < 0) return ZOR_E_NOT_CONNECTED;
  if (WatcherOfConnection() != nullptr) return ZOR_OK;
  if (!IsRemote()) return ZOR_E_NOT_CONNECTED;
  EndWhenSilent(g_stMsgCtx.socketFd);
  const std::uint32_t status = StartBusWatcher(g_stMsgCtx.socketFd);
  if (status == ZOR_OK) EnsureIdleHook(DrainPending);
  return status;
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
  busLink.pauses.OnConnected();
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
  ZOR_UTIL_TimerChgPeriod(busLink.timer, busLink.pauses.times.replyWaitMs);
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

}  // namespace

void OnConnectionEnded(UvMsgWatcher &watcher) noexcept {
  if (!IsOurs() || busLink.lost || &watcher != WatcherOfConnection()) return;
  busLink.lost = true;
  const bool rejoins = IsRejoinEnabled();
  if (rejoins) {
    busLink.pauses.OnLost();
    Pause();
  }
  Tell(ZOR_MSG_LINK_LOST);
  if (rejoins) EndPendingReplies(watcher, ZOR_E_PEER_GONE);
}

void AbandonStream(int fd) noexcept {
  if (fd != g_stMsgCtx.socketFd || busLink.lost || !IsRejoinEnabled() || WatcherOfConnection() == nullptr) return;
  Trace("msg", ZOR_TRACE_INFO, "A message was torn: leave the connection.");
  // An end that has been reached takes its place, so that the server sees what was left unread and names it.
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0) {
    const UniqueFd near(ends[0]), far(ends[1]);
    if (::dup3(near.get(), fd, O_CLOEXEC) == fd) return;
  }
  ::shutdown(fd, SHUT_RDWR);
  std::array<char, 4096> rest;  // the loop would take it for messages
  ssize_t count;
  do {
    count = ::recv(fd, rest.data(), rest.size(), MSG_DONTWAIT);
  } while (count > 0 || (count < 0 && errno == EINTR));
}

void StopRejoin() noexcept {
  CancelJoin();
  if (busLink.timer != nullptr && IsOnLoop(MainLoop(), &busLink.timer->header)) ZOR_UTIL_TimerDel(busLink.timer);
  busLink = {};
}

}  // namespace zor

uint32_t ZOR_MSG_SetLinkProc(ZOR_MSG_LINK_PROC proc, void *data) {
  if (const uint32_t status = zor::WatchConnection(); status != ZOR_OK) return status;
  zor::Adopt(*zor::WatcherOfConnection());
  zor::busLink.proc = proc;
  zor::busLink.procData = data;
  return ZOR_OK;
}

uint32_t ZOR_MSG_EnableRejoin(const ZOR_MSG_REJOIN *settings) {
  const auto times = zor::ChooseRejoinTimes(settings);
  if (!times) return ZOR_E_ARGUMENT;
  if (const uint32_t status = zor::WatchConnection(); status != ZOR_OK) return status;
  zor::Adopt(*zor::WatcherOfConnection());
  zor::busLink.pauses.times = *times;
  if (zor::IsRejoinEnabled()) return ZOR_OK;
  zor::busLink.timer = zor::AddTimer(&zor::MainLoop(), 0, 0, zor::OnTimer, nullptr);
  if (zor::busLink.timer == nullptr) return ZOR_E_NO_MEMORY;
  if (zor::busLink.lost) zor::Pause();
  return ZOR_OK;
}
