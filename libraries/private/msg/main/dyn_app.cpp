// Dynamically started applications: this process only reports what to do with them.
#include <zor/config_wire.h>
#include <zor/limits.h>
#include <zor/msg_build.h>
#include <zor/msg_request.h>
#include <zor/pubutil.h>

#include <cstdio>

#include "base/text.h"
#include "main/request_result.h"

namespace {

constexpr uint32_t kRestart = 2;

void Stop(const char *name) {
  std::printf("==========================ZOR_UTIL_UpdateDynAppListenFd app name %s should stop.\n", name);
  ZOR_MSG_HEAD request;
  ZOR_MSG_HEAD *received = nullptr;
  ZOR_MSG_SimpleBuilder(&request, name, ZOR_MSG_SAFE_EXIT, 0);
  const uint32_t status = ZOR_MSG_SendAndRecv(&request, &received, g_ulSafeExitMsgTimeout);
  const zor::MessagePtr reply(received);
  if (status == ZOR_OK) return;
  std::printf("============================UTilSafeExitProcesses fail to ZOR_MSG_SendAndRecv, pcName=%s, ret=%d\n",
              name, static_cast<int>(status));
}

}  // namespace

uint32_t ZOR_UTIL_UpdateDynAppListenFd(const char *name, uint32_t value) {
  if (name == nullptr) return 1;
  // The name as it travels: a longer one that truncates to this process's own name would make it stop itself.
  zor::NameField field;
  zor::SetName(field, name);
  if (value != 0 && zor::NameView(field) != zor::NameView(g_stMsgCtx.appName)) Stop(name);
  return ZOR_MSG_SendMsgDataWithData(nullptr, ZOR_MSG_DYN_APP_UPDATE, field, sizeof field, value);
}

// The receiver knows values, not statuses: 0 is the only status that becomes a value other than 0.
uint32_t ZOR_UTIL_UpdateDynAppStatus(const char *name, uint32_t status) {
  return ZOR_UTIL_UpdateDynAppListenFd(name, status == 0 ? 1 : 0);
}

uint32_t ZOR_UTIL_RestartDynApp(const char *name) {
  return ZOR_UTIL_UpdateDynAppListenFd(name, kRestart);
}

uint32_t ZOR_UTIL_KillAllDynApp(void) {
  ZOR_MSG_HEAD request;
  ZOR_MSG_SimpleBuilder(&request, nullptr, ZOR_MSG_KILL_ALL_DYN_APP, 0);
  return zor::RequestResult(request, ZOR_CFG_KILL_ALL_WAIT_MS);
}
