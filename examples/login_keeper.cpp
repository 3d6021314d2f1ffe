// A daemon that serves login control under the name "lctrl". It admits every login, but is slow to wake up: the first
// request goes unanswered.
#include <zor/lctrl.h>
#include <zor/msg.h>
#include <zor/uv.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "watchdog.h"

namespace {

ZOR_MSG_HEAD *OnLogin(ZOR_MSG_HEAD *msg) {
  static unsigned requests = 0;
  if (++requests == 1) {
    std::printf("lctrl: sleeping through a request of %s\n", msg->source);
    return nullptr;
  }
  char result[ZOR_LCTRL_RESULT_SIZE] = "welcome";
  return ZOR_MSG_MsgResponseBuilder(msg, 0, result, sizeof result);
}

ZOR_MSG_HEAD *OnExit(ZOR_MSG_HEAD *msg) {
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  return ZOR_MSG_MsgResponseBuilder(msg, 0, nullptr, 0);
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ZOR_MSG_Init("lctrl") != ZOR_OK) return 1;
  std::signal(SIGTERM, [](int) { ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault()); });
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_EnableRejoin(nullptr);  // a restart of the message server is survived
  ZOR_MSG_RegSyncMsgProc(ZOR_LCTRL_CHECK, OnLogin, 0, nullptr);
  ZOR_MSG_RegSyncMsgProc(ZOR_MSG_SAFE_EXIT, OnExit, 0, nullptr);
  std::printf("lctrl: on the bus\n");
  if (ReportToManager() != 0) return 1;
  const uint32_t status = ZOR_MSG_GetAndDispatch();
  ZOR_MSG_Destroy();
  return status == ZOR_OK ? 0 : 1;
}
