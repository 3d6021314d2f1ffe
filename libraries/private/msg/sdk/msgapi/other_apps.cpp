// Requests on behalf of, about, or to another daemon: event subscriptions, process count, safe exit.
#include <zor/limits.h>
#include <zor/msg_build.h>
#include <zor/msg_request.h>
#include <zor/status.h>

#include "base/text.h"
#include "message/context.h"

uint32_t g_ulSafeExitMsgTimeout = ZOR_CFG_SAFE_EXIT_WAIT_MS;

namespace {

// A message whose body is an application name, which always fills its whole field.
struct NameMessage {
  ZOR_MSG_HEAD header;
  zor::NameField name;
};
static_assert(sizeof(NameMessage) == ZOR_MSG_HEAD_SIZE + ZOR_MSG_NAME_SIZE);

uint32_t SendNameToServer(uint32_t type, uint32_t dataWord, const char *name) {
  zor::NameField body;
  zor::SetName(body, name);
  return ZOR_MSG_SendMsgDataWithData(nullptr, type, body, sizeof body, dataWord);
}

}  // namespace

uint32_t ZOR_MSG_SubscribeEventForOtherApp(uint32_t event, const char *name) {
  return name == nullptr ? ZOR_OK : SendNameToServer(ZOR_MSG_SUBSCRIBE_EVENT, event, name);
}

uint32_t ZOR_MSG_UnSubscribeEventForOtherApp(uint32_t event, const char *name) {
  return name == nullptr ? ZOR_OK : SendNameToServer(ZOR_MSG_UNSUBSCRIBE_EVENT, event, name);
}

uint32_t ZOR_MSG_GetNumOfProcesses(const char *name) {
  if (name == nullptr) return 0;
  NameMessage request = {};
  request.header.type = ZOR_MSG_GET_PROCESS_NUM;
  request.header.bodyLength = sizeof request.name;
  zor::SetName(request.name, name);
  ZOR_MSG_HEAD *received = nullptr;
  const uint32_t status = ZOR_MSG_SendAndRecv(&request.header, &received, ZOR_MSG_PROCESSES_WAIT_MS);
  const zor::MessagePtr reply(received);
  return status == ZOR_OK && reply != nullptr ? reply->data : 0;
}

uint32_t ZOR_MSG_SafeExitProcesses(const char *name) {
  if (name == nullptr) return ZOR_OK;
  ZOR_MSG_HEAD request;
  ZOR_MSG_SimpleBuilder(&request, name, ZOR_MSG_SAFE_EXIT, 0);
  ZOR_MSG_HEAD *received = nullptr;
  const uint32_t requested = ZOR_MSG_SendAndRecv(&request, &received, ZOR_MSG_PROCESSES_WAIT_MS);
  const zor::MessagePtr reply(received);
  // The server is notified even without a reply of the daemon; callers only compare the combined bits with 0.
  return SendNameToServer(ZOR_MSG_SAFE_EXIT, 0, name) | requested;
}
