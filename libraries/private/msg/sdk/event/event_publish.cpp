#include <zor/dmmsg.h>
#include <zor/event.h>
#include <zor/msg_build.h>
#include <zor/platform/system.h>
#include <zor/status.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "sdk/event/event_json.h"

namespace zor {
namespace {

constexpr char kBroker[] = "mic";

struct FreeDm {
  void operator()(ZOR_DMMSG_HEAD *dm) const noexcept { ZOR_DMMSG_Free(dm); }
};

// A device-management message that is built up to an event. An append that fails for want of memory frees it; later
// calls then fail too.
class ItemEvent {
 public:
  std::uint32_t Begin() {
    ZOR_DMMSG_HEAD *built = nullptr;
    const std::uint32_t status = ZOR_DMMSG_Builder(&built, kBroker, 0);
    dm_.reset(built);
    return status;
  }

  std::uint32_t Append(const char *name, const char *value) {
    const std::size_t length = std::min(std::strlen(value) + 1, std::size_t{UINT32_MAX});
    ZOR_DMMSG_HEAD *dm = dm_.release();
    const std::uint32_t status = ZOR_DMMSG_AppendItem(&dm, 0, name, value, static_cast<std::uint32_t>(length));
    dm_.reset(dm);
    return status;
  }

  std::uint32_t Send(std::uint32_t type) {
    if (dm_ != nullptr) ZOR_MSG_GetMsgHead(dm_.get())->type = type;
    return ZOR_DMMSG_Send(dm_.get());
  }

 private:
  std::unique_ptr<ZOR_DMMSG_HEAD, FreeDm> dm_;
};

JsonText PrintEvent(const char *module, const char *eventName, const cJSON &payload) {
  const char *timestamp = ZOR_UTIL_GetCurrUTCTimeStamp();
  if (timestamp == nullptr || *timestamp == '\0') return nullptr;
  const JsonPtr event = NewEvent(module, eventName, timestamp);
  JsonPtr copy(cJSON_Duplicate(&payload, 1));
  if (event == nullptr || copy == nullptr || !AddPayload(*event, copy.get())) return nullptr;
  static_cast<void>(copy.release());  // the event's now
  return JsonText(cJSON_PrintUnformatted(event.get()));
}

}  // namespace
}  // namespace zor

uint32_t ZOR_EVT_PublishEvent(uint32_t type, const char *eventName, const char *name, const char *value) {
  if (eventName == nullptr) return ZOR_EVT_FAILED;
  zor::ItemEvent event;
  uint32_t status = event.Begin();
  if (status == ZOR_OK) status = event.Append(zor::kEventTypeName, eventName);
  if (status == ZOR_OK && name != nullptr && value != nullptr) status = event.Append(name, value);
  return status != ZOR_OK ? status : event.Send(type);
}

uint32_t ZOR_EVT_PublishEventWithNVPair(uint32_t type, const char *eventName, const ZOR_NVPAIR *pairs) {
  if (eventName == nullptr) return ZOR_EVT_FAILED;
  zor::ItemEvent event;
  const uint32_t status = event.Begin();
  if (status != ZOR_OK) return status;
  event.Append(zor::kEventTypeName, eventName);
  for (const ZOR_NVPAIR *pair = pairs; pair != nullptr; pair = pair->next) {
    if (pair->name != nullptr && pair->value != nullptr) event.Append(pair->name, pair->value);
  }
  return event.Send(type);
}

uint32_t ZOR_EVT_PublishEventWithJson(const char *module, const char *eventName, uint32_t type, const cJSON *payload) {
  if (module == nullptr || eventName == nullptr || payload == nullptr) return ZOR_EVT_FAILED;
  const zor::JsonText text = zor::PrintEvent(module, eventName, *payload);
  if (text == nullptr) return ZOR_EVT_FAILED;
  // The NUL is not sent: a zero byte follows every received message.
  return ZOR_MSG_SendMsgData(nullptr, type, text.get(), static_cast<uint32_t>(std::strlen(text.get())));
}
