// This process's subscriptions, and how a received event is dispatched to them.
#include <zor/event.h>
#include <zor/msg_build.h>
#include <zor/status.h>

#include <cstdio>

#include "base/alloc.h"
#include "base/list.h"
#include "sdk/loop/lag/lag.h"
#include "sdk/msgapi/event_hook.h"

namespace zor {
namespace {

struct Subscription {
  Subscription *next;
  std::uint32_t type;
  ZOR_EVT_CALLBACK callback;
};

Subscription *subscriptions = nullptr;
ZOR_EVT_CALLBACK allEventsCallback = nullptr;

std::uint32_t Run(ZOR_EVT_CALLBACK callback, const ZOR_MSG_HEAD &event, const char *body, std::uint32_t bodyLength) {
  const lag::Span span(ZOR_UV_LAG_HANDLER, callback, &event);
  return callback(event.type, body, bodyLength);
}

void Call(ZOR_EVT_CALLBACK callback, const ZOR_MSG_HEAD &event, const char *body, std::uint32_t bodyLength) {
  const std::uint32_t status = Run(callback, event, body, bodyLength);
  if (status != ZOR_OK) std::printf("Do Event CallBack Error %x", status);
}

// The header as it was received: callbacks may change the message.
void RunCallbacks(const ZOR_MSG_HEAD event, const char *body, std::uint32_t bodyLength) {
  // Entries are only ever appended: counting first leaves out those that the callbacks add.
  std::uint32_t left = ZOR_UTIL_ListGetCount(&subscriptions);
  for (const Subscription *entry = subscriptions; left != 0; --left, entry = entry->next) {
    if (entry->type == event.type) Call(entry->callback, event, body, bodyLength);
  }
  if (allEventsCallback != nullptr) Call(allEventsCallback, event, body, bodyLength);
}

bool IsJsonType(std::uint32_t type) {
  return type >= ZOR_EVT_JSON_FIRST && type <= ZOR_EVT_JSON_LAST;
}

}  // namespace
}  // namespace zor

uint32_t ZOR_EVT_SubscribeAllEvent(void) {
  return ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_SUBSCRIBE_EVENT, ZOR_EVT_ALL);
}

uint32_t ZOR_EVT_SubscribeSingelEventCallBack(uint32_t type, ZOR_EVT_CALLBACK callback) {
  if (type < ZOR_EVT_ALL || callback == nullptr) return ZOR_EVT_FAILED;
  auto entry = zor::GuardedNew<zor::Subscription>();
  if (entry == nullptr) return ZOR_EVT_FAILED;
  entry->type = type;
  entry->callback = callback;
  zor::Append(zor::subscriptions, entry.release());
  zor::SetEventProc(ZOR_Evt_SubMsgProc);
  return ZOR_OK;
}

void ZOR_EVT_SubscribeAllEventCallBack(ZOR_EVT_CALLBACK callback) {
  zor::allEventsCallback = callback;
  zor::SetEventProc(ZOR_Evt_SubMsgProc);
}

void ZOR_Evt_SubMsgProc(ZOR_MSG_HEAD *msg) {
  if (msg == nullptr) return;
  if (zor::IsJsonType(msg->type)) {
    void *body;
    ZOR_EVT_GetEventBody(msg, &body);
    return zor::RunCallbacks(*msg, static_cast<const char *>(body), msg->bodyLength);
  }
  char *text = nullptr;
  uint32_t length = 0;
  if (ZOR_EVT_GetEventContent(msg, &text, &length) != ZOR_OK) return;
  const zor::MallocPtr<char> owner(text);
  zor::RunCallbacks(*msg, text, length);
}
