// A daemon that serves others: it registers handlers, one for each kind of message, and runs the loop until a daemon
// asks it to exit.
#include <cjson/cJSON.h>
#include <unistd.h>
#include <zor/dmmsg.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/notifyclt.h>
#include <zor/uv.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "demo.h"

namespace {

uint32_t sum = 0;
std::string steps;

// One-way: nothing goes back.
void OnNote(ZOR_MSG_HEAD *msg) {
  std::printf(PROVIDER ": note %u from %s\n", msg->data, msg->source);
  sum += msg->data;
}

// Request: the message that a synchronous handler returns is sent to the requester.
ZOR_MSG_HEAD *OnSum(ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_MsgResponseBuilder(msg, sum, nullptr, 0);
}

// The body of a received message is complete, however it travelled.
ZOR_MSG_HEAD *OnEcho(ZOR_MSG_HEAD *msg) {
  std::printf(PROVIDER ": %u bytes from %s, sending them back\n", msg->bodyLength, msg->source);
  return ZOR_MSG_MsgResponseBuilder(msg, 0, ZOR_MSG_GetMsgByHead(msg), msg->bodyLength);
}

// Three handlers of one type. They run in the order given at registration, and only the second one replies.
void OnFirstStep(ZOR_MSG_HEAD *) {
  steps += steps.empty() ? "first" : " first";
}

ZOR_MSG_HEAD *OnSecondStep(ZOR_MSG_HEAD *msg) {
  steps += " second";
  return ZOR_MSG_MsgResponseBuilder(msg, 0, steps.data(), static_cast<uint32_t>(steps.size()));
}

void OnThirdStep(ZOR_MSG_HEAD *) {
  steps += " third";
  std::printf(PROVIDER ": steps taken: %s\n", steps.c_str());
}

// An event goes to all subscribers of its type.
void OnPublish(ZOR_MSG_HEAD *msg) {
  ZOR_MSG_SendMsgData(nullptr, DEMO_EVENT, ZOR_MSG_GetMsgByHead(msg), msg->bodyLength);
}

// The library's own events: subscribers get JSON, whichever way they are published.
void OnPublishBoth(ZOR_MSG_HEAD *) {
  ZOR_EVT_PublishEvent(DEMO_ITEM_EVENT, "link", "port", "1");
  cJSON *payload = cJSON_Parse("{\"hosts\":[2,3]}");
  ZOR_EVT_PublishEventWithJson("network", "lease", DEMO_JSON_EVENT, payload);
  cJSON_Delete(payload);
}

bool AsksFor(const ZOR_DMMSG_HEAD *request, const char *device) {
  ZOR_DMMSG_ITEM item;
  const void *next = nullptr;
  return ZOR_DMMSG_GetSubType(request) == DEMO_GET_DEVICE && ZOR_DMMSG_GetItem(request, &item, &next) == ZOR_OK &&
         item.valueLength == std::strlen(device) + 1 && std::memcmp(item.value, device, item.valueLength) == 0;
}

// Management request: the reply has items, or an error code.
void OnManagement(ZOR_MSG_HEAD *msg) {
  const auto *request = static_cast<const ZOR_DMMSG_HEAD *>(ZOR_MSG_GetMsgByHead(msg));
  if (!AsksFor(request, "lamp")) {
    ZOR_DMMSG_ReplyRetCode(request, DEMO_NO_DEVICE);
    return;
  }
  ZOR_DMMSG_HEAD *reply = nullptr;
  ZOR_DMMSG_Builder(&reply, "", DEMO_GET_DEVICE);
  ZOR_DMMSG_AppendItem(&reply, 0, "state", "on", sizeof "on");
  ZOR_DMMSG_AppendItem(&reply, 0, "level", "7", sizeof "7");
  ZOR_DMMSG_Reply(request, 0, reply);
  ZOR_DMMSG_Free(reply);
}

// The descriptor follows the message that announces it.
void OnDescriptor(ZOR_MSG_HEAD *msg) {
  int fd = -1;
  if (ZOR_MSG_RecvFd(&fd, 2000) != ZOR_OK) return;
  std::printf(PROVIDER ": got a descriptor from %s, writing to it\n", msg->source);
  dprintf(fd, "%s wrote this", g_stMsgCtx.appName);
  close(fd);
}

// Restful: the text is the reply to a request for DEMO_PATH "/state".
uint32_t OnLampState(void *, char **replyText) {
  *replyText = strdup("{\"lamp\":\"on\"}");
  return *replyText != nullptr ? ZOR_OK : ZOR_E_NO_MEMORY;
}

const ZOR_MSG_RESTFUL_ENTRY kLampPaths[] = {{"state", OnLampState}, {nullptr, nullptr}};

// Notification channel: null out-pointers mean that no reply is wanted.
uint32_t OnQuestion(void *, void **reply, uint32_t *replyLength) {
  if (reply == nullptr || replyLength == nullptr) return 0;
  *reply = strdup("forty-two");
  *replyLength = *reply != nullptr ? sizeof "forty-two" : 0;
  return 0;
}

ZOR_MSG_HEAD *OnExit(ZOR_MSG_HEAD *msg) {
  std::printf(PROVIDER ": asked to exit by %s\n", msg->source);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  return ZOR_MSG_MsgResponseBuilder(msg, 0, nullptr, 0);
}

// The library joins the bus again by itself, and repeats the restful registration below.
void OnLink(uint32_t event, void *) {
  if (event == ZOR_MSG_LINK_LOST) std::printf(PROVIDER ": the message server has gone\n");
  if (event == ZOR_MSG_LINK_REJOINED) std::printf(PROVIDER ": on the bus again\n");
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ZOR_MSG_Init(PROVIDER) != ZOR_OK) return 1;

  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegMsgProc(DEMO_NOTE, OnNote, 0, nullptr);
  ZOR_MSG_RegSyncMsgProc(DEMO_SUM, OnSum, 0, nullptr);
  ZOR_MSG_RegSyncMsgProc(DEMO_ECHO, OnEcho, 0, nullptr);
  ZOR_MSG_RegMsgProc(DEMO_STEPS, OnThirdStep, 3, nullptr);
  ZOR_MSG_RegMsgProc(DEMO_STEPS, OnFirstStep, 1, nullptr);
  ZOR_MSG_RegSyncMsgProc(DEMO_STEPS, OnSecondStep, 2, nullptr);
  ZOR_MSG_RegMsgProc(DEMO_PUBLISH, OnPublish, 0, nullptr);
  ZOR_MSG_RegMsgProc(DEMO_PUBLISH_BOTH, OnPublishBoth, 0, nullptr);
  ZOR_MSG_RegMsgProc(ZOR_MSG_DM, OnManagement, 0, nullptr);
  ZOR_MSG_RegMsgProc(DEMO_DESCRIPTOR, OnDescriptor, 0, nullptr);
  ZOR_MSG_RegSyncMsgProc(ZOR_MSG_SAFE_EXIT, OnExit, 0, nullptr);
  ZOR_MSG_RegRestfulProcsEx(DEMO_PATH, kLampPaths, "expand");
  ZOR_NOTIFYCLT_RegSyncMsgProc(DEMO_QUESTION, OnQuestion);
  ZOR_MSG_SetLinkProc(OnLink, nullptr);
  ZOR_MSG_EnableRejoin(nullptr);

  std::printf(PROVIDER ": registered, and granted the name %s\n", g_stMsgCtx.appName);
  const uint32_t status = ZOR_MSG_GetAndDispatch();
  ZOR_NOTIFYCLT_Destroy();
  ZOR_MSG_Destroy();
  return status == ZOR_OK ? 0 : 1;
}
