/* Holds the conversations as a provider, in plain C: c_provider NAME. */
#include <cjson/cJSON.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/msg_rejoin.h>
#include <zor/uv.h>

#include "conversation.h"

static ZOR_MSG_HEAD *OnState(ZOR_MSG_HEAD *msg) {
  static const char state[] = "{\"actual\":21.5,\"label\":\"" TALK_LABEL "\"}";
  return ZOR_MSG_MsgResponseBuilder(msg, 0, state, sizeof state - 1);
}

static ZOR_MSG_HEAD *OnWord(ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_MsgResponseBuilder(msg, msg->data + 1, NULL, 0);
}

static void Reply(void *data) {
  ZOR_MSG_HEAD *reply = data;
  ZOR_MSG_Send(reply);
  free(reply);
}

/* The reply is made now, while there is a request, and sent when it is time. */
static void OnLater(ZOR_MSG_HEAD *msg) {
  ZOR_MSG_HEAD *reply = ZOR_MSG_MsgResponseBuilder(msg, 42, NULL, 0);
  if (reply == NULL) return;
  memcpy(reply->destination, msg->source, sizeof reply->destination);
  reply->type = msg->type;
  if (ZOR_UTIL_TimerAdd(msg->data, 1, Reply, reply) == NULL) free(reply);
}

static ZOR_MSG_HEAD *OnError(ZOR_MSG_HEAD *msg) {
  static const char why[] = "{\"error\":\"" TALK_WHY "\"}";
  return ZOR_MSG_MsgResponseBuilder(msg, ZOR_E_IO, why, sizeof why - 1);
}

static void OnSilent(ZOR_MSG_HEAD *msg) {
  (void)msg;
}

static ZOR_MSG_HEAD *OnEcho(ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_MsgResponseBuilder(msg, 0, ZOR_MSG_GetMsgByHead(msg), msg->bodyLength);
}

static void Publish(const char *event, cJSON *payload) {
  ZOR_EVT_PublishEventWithJson(TALK_MODULE, event, ZOR_EVT_GetMsgTypeByEventModuleName(TALK_MODULE), payload);
  cJSON_Delete(payload);
}

static void OnNote(ZOR_MSG_HEAD *msg) {
  cJSON *payload = cJSON_CreateObject();
  cJSON_AddNumberToObject(payload, "n", msg->data);
  Publish("note", payload);
}

static void OnBurst(ZOR_MSG_HEAD *msg) {
  char fill[501];
  memset(fill, 'x', sizeof fill - 1);
  fill[sizeof fill - 1] = '\0';
  for (uint32_t i = 0; i < msg->data; ++i) {
    cJSON *payload = cJSON_CreateObject();
    cJSON_AddNumberToObject(payload, "i", i);
    cJSON_AddStringToObject(payload, "fill", fill);
    Publish("burst", payload);
  }
}

static void OnDescriptor(ZOR_MSG_HEAD *msg) {
  (void)msg;
  int fd = -1;
  if (ZOR_MSG_RecvFd(&fd, 10000) != ZOR_OK) return;
  if (write(fd, TALK_HELLO, strlen(TALK_HELLO)) < 0) perror("descriptor");
  close(fd);
}

static ZOR_MSG_HEAD *OnExit(ZOR_MSG_HEAD *msg) {
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  return ZOR_MSG_MsgResponseBuilder(msg, 0, NULL, 0);
}

static void OnLink(uint32_t event, void *data) {
  (void)data;
  if (event == ZOR_MSG_LINK_LOST) puts("lost");
  if (event == ZOR_MSG_LINK_REJOINED) puts("rejoined");
}

int main(int argc, char **argv) {
  if (argc != 2) return 2;
  setvbuf(stdout, NULL, _IOLBF, 0);
  if (ZOR_MSG_Init(argv[1]) != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegSyncMsgProc(TALK_STATE, OnState, 0, NULL);
  ZOR_MSG_RegSyncMsgProc(TALK_WORD, OnWord, 0, NULL);
  ZOR_MSG_RegMsgProc(TALK_LATER, OnLater, 0, NULL);
  ZOR_MSG_RegSyncMsgProc(TALK_ERROR, OnError, 0, NULL);
  ZOR_MSG_RegMsgProc(TALK_SILENT, OnSilent, 0, NULL);
  ZOR_MSG_RegSyncMsgProc(TALK_ECHO, OnEcho, 0, NULL);
  ZOR_MSG_RegMsgProc(TALK_NOTE, OnNote, 0, NULL);
  ZOR_MSG_RegMsgProc(TALK_DESCRIPTOR, OnDescriptor, 0, NULL);
  ZOR_MSG_RegMsgProc(TALK_BURST, OnBurst, 0, NULL);
  ZOR_MSG_RegSyncMsgProc(ZOR_MSG_SAFE_EXIT, OnExit, 0, NULL);
  ZOR_MSG_SetLinkProc(OnLink, NULL);
  ZOR_MSG_EnableRejoin(NULL);
  puts("ready");
  const uint32_t status = ZOR_MSG_GetAndDispatch();
  ZOR_MSG_Destroy();
  return status == ZOR_OK ? 0 : 1;
}
