#include "sdk/event/event_json.h"

#include <zor/event.h>
#include <zor/platform/system.h>
#include <zor/status.h>

#include <cstring>
#include <utility>

namespace zor {

JsonPtr NewEvent(const char *module, const char *eventName, const char *timestamp) noexcept {
  JsonPtr event(cJSON_CreateObject());
  const bool whole = ZOR_GenerateJsonItem(event.get(), "Method", "notify") == ZOR_OK &&
                     ZOR_GenerateJsonItem(event.get(), "Module", module) == ZOR_OK &&
                     ZOR_GenerateJsonItem(event.get(), kEventTypeName, eventName) == ZOR_OK &&
                     ZOR_GenerateJsonItem(event.get(), "Timestamp", timestamp) == ZOR_OK;
  return whole ? std::move(event) : nullptr;
}

bool AddPayload(cJSON &event, cJSON *payload) noexcept {
  return cJSON_AddItemToObject(&event, "Payload", payload) != 0;
}

}  // namespace zor

uint32_t ZOR_GenerateJsonItem(cJSON *object, const char *name, const char *value) {
  if (object == nullptr || name == nullptr || value == nullptr) return ZOR_EVT_FAILED;
  return cJSON_AddStringToObject(object, name, value) != nullptr ? ZOR_OK : ZOR_EVT_FAILED;
}

uint32_t ZOR_EVT_JsonBeginProc(void **root, const char *module, const char *eventName) {
  if (root == nullptr || module == nullptr || eventName == nullptr) return ZOR_EVT_FAILED;
  const char *timestamp = ZOR_UTIL_GetCurrUTCTimeStamp();
  // The member is present even when there is no time.
  zor::JsonPtr event = zor::NewEvent(module, eventName, timestamp == nullptr ? "" : timestamp);
  cJSON_Delete(static_cast<cJSON *>(*root));
  *root = event.release();
  return *root != nullptr ? ZOR_OK : ZOR_EVT_FAILED;
}

uint32_t ZOR_EVT_BuiderJsonProc(cJSON **payload, const char *name, const char *value) {
  if (payload == nullptr || name == nullptr || value == nullptr) return ZOR_EVT_FAILED;
  if (*payload == nullptr) *payload = cJSON_CreateObject();
  return ZOR_GenerateJsonItem(*payload, name, value);
}

uint32_t ZOR_EVT_EndJsonEndProc(void **root, cJSON *payload) {
  if (root == nullptr || *root == nullptr || payload == nullptr) return ZOR_EVT_FAILED;
  auto *event = static_cast<cJSON *>(*root);
  if (!zor::AddPayload(*event, payload)) return ZOR_EVT_FAILED;
  const zor::JsonText printed(cJSON_Print(event));
  char *text = printed == nullptr ? nullptr : ::strdup(printed.get());  // free() may not suit what cJSON allocates
  if (text == nullptr) {
    cJSON_DetachItemViaPointer(event, payload);
    return ZOR_EVT_FAILED;
  }
  cJSON_Delete(event);
  *root = text;
  return ZOR_OK;
}
