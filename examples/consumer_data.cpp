// Data with names: management messages, and events that arrive as JSON.
#include <cjson/cJSON.h>
#include <zor/dmmsg.h>
#include <zor/event.h>
#include <zor/uv.h>

#include <cstdio>
#include <cstring>

#include "consumer.h"
#include "demo.h"

namespace {

// An item's text, which comes from another process and need not end in a NUL.
std::string ItemText(const void *field, uint32_t length) {
  return field == nullptr ? std::string() : std::string(static_cast<const char *>(field), length).c_str();
}

// Asks for the settings of a device; the status is the reason when there are none.
std::string Settings(const std::string &device, uint32_t &status) {
  ZOR_DMMSG_HEAD *request = nullptr;
  ZOR_DMMSG_HEAD *reply = nullptr;
  ZOR_DMMSG_Builder(&request, PROVIDER, DEMO_GET_DEVICE);
  ZOR_DMMSG_AppendItem(&request, 0, "device", device.c_str(), static_cast<uint32_t>(device.size() + 1));
  status = ZOR_DMMSG_SyncSend(request, &reply, kWaitMs);
  ZOR_DMMSG_Free(request);

  std::string settings;
  ZOR_DMMSG_ITEM item;
  for (const void *next = nullptr; ZOR_DMMSG_GetItem(reply, &item, &next) == ZOR_OK;) {
    if (item.name == nullptr) continue;  // a reply's unused bytes
    settings += ItemText(item.name, item.nameLength) + '=' + ItemText(item.value, item.valueLength) + ' ';
  }
  ZOR_DMMSG_Free(reply);
  return settings;
}

void Management() {
  uint32_t status = ZOR_OK;
  const std::string lamp = Settings("lamp", status);
  Check(status == ZOR_OK && lamp == "state=on level=7 ", "management request: the lamp has " + lamp);
  const std::string boiler = Settings("boiler", status);
  Check(status == DEMO_NO_DEVICE && boiler.empty(),
        "management request: for the boiler the answer is error " + std::to_string(status));
}

std::string received;

// The event's name and payload, in one line.
uint32_t Receive(const char *subscriber, const char *body) {
  const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> event(cJSON_Parse(body), &cJSON_Delete);
  const char *name = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(event.get(), "EventType"));
  const std::unique_ptr<char, FreeBlock> payload(
      cJSON_PrintUnformatted(cJSON_GetObjectItemCaseSensitive(event.get(), "Payload")));
  if (name == nullptr || payload == nullptr) return 1;
  received += std::string(subscriber) + ' ' + name + payload.get() + '\n';
  return 0;
}

uint32_t OnOneType(uint32_t, const char *body, uint32_t) {
  return Receive("one", body);
}

uint32_t OnAnyType(uint32_t type, const char *body, uint32_t) {
  if (type == DEMO_JSON_EVENT) ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());  // the last one
  return Receive("all", body);
}

void Events() {
  for (const uint32_t type : {DEMO_ITEM_EVENT, DEMO_JSON_EVENT}) ZOR_EVT_SubscribeSingelEventCallBack(type, OnOneType);
  ZOR_EVT_SubscribeAllEventCallBack(OnAnyType);
  ZOR_EVT_SubscribeAllEvent();
  ZOR_MSG_SendSimpleMsg(PROVIDER, DEMO_PUBLISH_BOTH, 0);
  ZOR_UV_LoopRun(nullptr, kWaitMs);
  const std::string link = " link{\"port\":\"1\"}\n";
  const std::string lease = " lease{\"hosts\":[2,3]}\n";
  std::printf("%s", received.c_str());
  Check(received == "one" + link + "all" + link + "one" + lease + "all" + lease,
        "events: an item event and a JSON event reached both subscribers");
}

}  // namespace

void NamedData() {
  Management();
  Events();
}
