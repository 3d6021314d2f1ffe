#include "programs/bus_daemon.h"

#include <fcntl.h>
#include <zor/msg.h>
#include <zor/notify_rejoin.h>
#include <zor/notifyclt.h>
#include <zor/uv.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "common/malloc_ptr.h"
#include "common/unique_fd.h"
#include "programs/service_manager.h"

namespace zor::daemon {
namespace {

// Once: the loop may run again for the daemon's last words, with the signal still pending.
void OnSignal(UvIO *watcher, uint32_t) {
  ZOR_UV_IOStop(watcher, UV_READABLE);
  TellStopping();
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

struct Connection {
  ProblemLog &problems;
  BusListener *listener;
};

void OnLink(uint32_t event, void *data) {
  const auto &[problems, listener] = *static_cast<Connection *>(data);
  switch (event) {
    case ZOR_MSG_LINK_LOST:
      problems.Print("the message server has gone; joining again");
      if (listener != nullptr) listener->OnBusLost();
      break;
    case ZOR_MSG_LINK_REFUSED:
      problems.Print("the message server refuses the name %s; trying again", g_stMsgCtx.appName);
      break;
    case ZOR_MSG_LINK_REJOINED:
      problems.Print("on the bus again as %s", g_stMsgCtx.appName);
      if (listener != nullptr) listener->OnRejoined();
      break;
    default:
      break;
  }
}

void OnNotifyLink(uint32_t event, void *data) {
  auto &problems = *static_cast<ProblemLog *>(data);
  problems.Print(event == ZOR_NOTIFYCLT_LINK_LOST ? "the notification server has gone; connecting again"
                                                  : "connected to the notification server again");
}

// The two servers end and are restarted each by itself. A daemon whose name has no module has no notification client.
bool OutliveServers(Connection &connection) {
  ProblemLog &problems = connection.problems;
  if (ZOR_MSG_SetLinkProc(OnLink, &connection) != ZOR_OK || ZOR_MSG_EnableRejoin(nullptr) != ZOR_OK) return false;
  const uint32_t status = ZOR_NOTIFYCLT_EnableRejoin(nullptr);
  if (status == ZOR_NOTIFY_E_NOT_WRITABLE) return true;
  return status == ZOR_NOTIFY_OK && ZOR_NOTIFYCLT_SetLinkProc(OnNotifyLink, &problems) == ZOR_NOTIFY_OK;
}

// The loop owns the record and the descriptor.
bool WatchSignals(const StopSignal &stop) {
  UniqueFd fd(::fcntl(stop.fd(), F_DUPFD_CLOEXEC, 0));
  MallocPtr<UvIO> watcher(static_cast<UvIO *>(std::calloc(1, sizeof(UvIO))));
  if (!fd.valid() || watcher == nullptr || ZOR_UV_IOInit(nullptr, watcher.get(), fd.get(), OnSignal) != ZOR_OK) {
    return false;
  }
  fd.release();
  return ZOR_UV_IOStart(watcher.release(), UV_READABLE) == ZOR_OK;
}

// Feeds the service manager's watchdog from the loop, until the object ends: the loop may run again after that.
class Feeding {
 public:
  Feeding() = default;
  Feeding(const Feeding &) = delete;
  Feeding &operator=(const Feeding &) = delete;
  ~Feeding() { ZOR_UTIL_TimerDel(timer_); }

  bool Start() {
    if (!watchdog_.enabled()) return true;
    watchdog_.Feed();
    // Twice as often as feeds are due: a timer that fires a moment early must not lose half of an interval.
    const auto period = std::clamp<int64_t>(watchdog_.period().count() / 2, 1, INT32_MAX);
    timer_ = ZOR_UTIL_TimerAdd(static_cast<uint32_t>(period), 0, OnDue, &watchdog_);
    return timer_ != nullptr;
  }

 private:
  static void OnDue(void *watchdog) { static_cast<Watchdog *>(watchdog)->Feed(); }

  Watchdog watchdog_;
  UvTimer *timer_ = nullptr;
};

// False, with a line, when there is no server or it refuses the name.
bool JoinBus(const char *name, Connection &connection) {
  ProblemLog &problems = connection.problems;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  const uint32_t status = ZOR_MSG_Init(name);
  if (status != ZOR_OK) {
    problems.Print("no message server: status 0x%x", status);
    return false;
  }
  if (g_stMsgCtx.socketFd < 0) {  // a refusal is not reported otherwise
    problems.Print("the message server refuses the name %s", name);
    return false;
  }
  if (!OutliveServers(connection)) {
    problems.Print("out of memory");
    return false;
  }
  return true;
}

void Announce(const char *name, const ProblemLog &problems) {
  std::printf("%s: on the bus as %s\n", problems.program(), name);
  std::fflush(stdout);
  TellReady();
}

ExitCode ServeLoop(const StopSignal &stop, ProblemLog &problems) {
  Feeding feeding;
  if (!WatchSignals(stop) || !feeding.Start()) {
    problems.Print("the loop cannot be set up");
    return kExitFailure;
  }
  if (ZOR_MSG_GetAndDispatch() == ZOR_OK) return kExitOk;
  problems.Print("the loop has failed");
  return kExitFailure;
}

}  // namespace

ExitCode ServeBus(const char *name, const StopSignal &stop, ProblemLog &problems, BusListener *listener) {
  Connection connection = {problems, listener};
  if (!JoinBus(name, connection)) return kExitFailure;
  ExitCode served = listener != nullptr ? listener->OnJoined() : kExitOk;
  if (served == kExitOk) {
    Announce(name, problems);
    served = ServeLoop(stop, problems);
  }
  if (listener != nullptr) listener->OnLeaving();
  ZOR_MSG_Destroy();
  return served;
}

}  // namespace zor::daemon
