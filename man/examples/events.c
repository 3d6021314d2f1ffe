#include <stdio.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/uv.h>

/* The text is a JSON object with Method, Module, EventType, Timestamp and Payload. */
static uint32_t OnEvent(uint32_t type, const char *body, uint32_t length) {
  printf("event %s, %s\n", ZOR_EVT_GetEventModuleNameByEventType(type), length > 2 && body[0] == '{' ? "JSON" : "?");
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  return 0;
}

int main(void) {
  if (ZOR_MSG_Init("watcher") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  const uint32_t type = ZOR_EVT_GetMsgTypeByEventModuleName("wan");
  ZOR_EVT_SubscribeSingelEventCallBack(type, OnEvent);              /* what to call; asks the server for nothing */
  ZOR_MSG_SubscribeEventForOtherApp(type, g_stMsgCtx.appName);      /* asks for this one event, for this daemon */
  ZOR_EVT_PublishEvent(type, "Joined", "Mac", "00:11:22:33:44:55"); /* normally another daemon does that */
  return (int)ZOR_UV_LoopRun(NULL, 5000);
}

/* Prints:
 * event wan, JSON
 */
