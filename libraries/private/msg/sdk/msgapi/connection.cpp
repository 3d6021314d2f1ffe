// The life of the connection. Init connects and registers; failures after connecting are not reported:
// they leave the bus destroyed, which callers see at their next send. They rely on being able to start while the server
// refuses them.
#include <unistd.h>
#include <zor/msg_bus.h>
#include <zor/msg_dispatch.h>
#include <zor/notifyclt.h>
#include <zor/status.h>
#include <zor/uv_io.h>

#include <csignal>
#include <cstdio>

#include "base/text.h"
#include "common/unique_fd.h"
#include "message/context.h"
#include "sdk/loop/idle/idle.h"
#include "sdk/msgapi/bus_watcher.h"
#include "sdk/msgapi/connect.h"
#include "sdk/msgapi/queue.h"
#include "sdk/msgapi/registration.h"
#include "sdk/msgapi/rejoin.h"
#include "sdk/msgapi/standing.h"

uint32_t ZOR_MSG_Init(const char *appName) {
  if (g_stMsgCtx.socketFd >= 0) return ZOR_OK;
  std::signal(SIGPIPE, SIG_IGN);
  zor::SetName(g_stMsgCtx.appName, appName);
  zor::UniqueFd fd = zor::ConnectLocal();
  if (!fd.valid()) return ZOR_E_CONNECT;
  uint32_t status = zor::StartBusWatcher(fd.get());
  if (status != ZOR_OK) return status;
  g_stMsgCtx.socketFd = fd.release();
  if (zor::Register() != ZOR_OK) ZOR_MSG_Destroy();
  status = ZOR_NOTIFYCLT_InitByName(appName);
  if (status != ZOR_OK) ZOR_MSG_Destroy();
  zor::EnsureIdleHook(zor::DrainPending);  // stays when the bus is destroyed and serves the next connection
  return status;
}

uint32_t ZOR_MSG_InitSlaveApp(const char *appName, const char *ipv4Text, uint16_t port) {
  zor::SetName(g_stMsgCtx.appName, appName);
  if (ipv4Text == nullptr) return ZOR_E_ARGUMENT;
  zor::UniqueFd fd = zor::ConnectRemote(ipv4Text, port);
  if (!fd.valid()) return ZOR_E_CONNECT;
  g_stMsgCtx.socketFd = fd.release();
  const uint32_t status = zor::Register();
  if (status != ZOR_OK) ZOR_MSG_Destroy();
  return status;
}

void ZOR_MSG_Destroy(void) {
  zor::StopRejoin();
  zor::ForgetStanding();
  zor::StopBusWatcher();
  zor::StopReports();
  ZOR_MSG_QueueDestroy(&g_stMsgCtx.pending);
  if (g_stMsgCtx.traceStream != nullptr) std::fclose(g_stMsgCtx.traceStream);
  if (g_stMsgCtx.socketFd > 0) ::close(g_stMsgCtx.socketFd);
  g_stMsgCtx = {};  // the trace descriptor becomes 0, not -1
  g_stMsgCtx.socketFd = -1;
}
