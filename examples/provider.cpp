// A daemon that others talk to: it registers handlers, one for each kind of message, and runs the loop until somebody
// asks it to exit.
#include <unistd.h>
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

// Request: what a synchronous handler returns is sent to whoever asked.
ZOR_MSG_HEAD *OnSum(ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_MsgResponseBuilder(msg, sum, nullptr, 0);
}

// The body of a received message is complete, however it travelled.
ZOR_MSG_HEAD *OnEcho(ZOR_MSG_HEAD *msg) {
  std::printf(PROVIDER ": %u bytes from %s, sending them back\n", msg->bodyLength, msg->source);
  return ZOR_MSG_MsgResponseBuilder(msg, 0, ZOR_MSG_GetMsgByHead(msg), msg->bodyLength);
}

// Three handlers of one type. They run in the order given at registration, and only the second one answers.
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

// An event goes to everybody who has subscribed to its type.
void OnPublish(ZOR_MSG_HEAD *msg) {
  ZOR_MSG_SendMsgData(nullptr, DEMO_EVENT, ZOR_MSG_GetMsgByHead(msg), msg->bodyLength);
}

// The descriptor follows the message that announces it.
void OnDescriptor(ZOR_MSG_HEAD *msg) {
  int fd = -1;
  if (ZOR_MSG_RecvFd(&fd, 2000) != ZOR_OK) return;
  std::printf(PROVIDER ": got a descriptor from %s, writing to it\n", msg->source);
  dprintf(fd, "%s wrote this", g_stMsgCtx.appName);
  close(fd);
}

// Restful: the text goes back to whoever asked for DEMO_PATH "/state".
uint32_t OnLampState(void *, char **replyText) {
  *replyText = strdup("{\"lamp\":\"on\"}");
  return *replyText != nullptr ? ZOR_OK : ZOR_E_NO_MEMORY;
}

const ZOR_MSG_RESTFUL_ENTRY kLampPaths[] = {{"state", OnLampState}, {nullptr, nullptr}};

// Notification channel: null out-pointers mean that no answer is wanted.
uint32_t OnQuestion(void *, void **answer, uint32_t *answerLength) {
  if (answer == nullptr || answerLength == nullptr) return 0;
  *answer = strdup("forty-two");
  *answerLength = *answer != nullptr ? sizeof "forty-two" : 0;
  return 0;
}

ZOR_MSG_HEAD *OnExit(ZOR_MSG_HEAD *msg) {
  std::printf(PROVIDER ": asked to exit by %s\n", msg->source);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  return ZOR_MSG_MsgResponseBuilder(msg, 0, nullptr, 0);
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
  ZOR_MSG_RegMsgProc(DEMO_DESCRIPTOR, OnDescriptor, 0, nullptr);
  ZOR_MSG_RegSyncMsgProc(ZOR_MSG_SAFE_EXIT, OnExit, 0, nullptr);
  ZOR_MSG_RegRestfulProcsEx(DEMO_PATH, kLampPaths, "expand");
  ZOR_NOTIFYCLT_RegSyncMsgProc(DEMO_QUESTION, OnQuestion);

  std::printf(PROVIDER ": registered, and granted the name %s\n", g_stMsgCtx.appName);
  const uint32_t status = ZOR_MSG_GetAndDispatch();
  ZOR_NOTIFYCLT_Destroy();
  ZOR_MSG_Destroy();
  return status == ZOR_OK ? 0 : 1;
}
