// Turns items into JSON. Names and values come from other processes: they may lack their NUL, or be missing.
#include <zor/dmmsg.h>
#include <zor/event.h>
#include <zor/status.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/alloc.h"
#include "message/header.h"
#include "sdk/event/event_json.h"

namespace zor {
namespace {

// The text up to its NUL or the end of the field; null without memory.
MallocPtr<char> CopyField(const void *field, std::uint32_t length) {
  return MallocPtr<char>(::strndup(static_cast<const char *>(field), length));
}

class EventContent {
 public:
  explicit EventContent(const char *module) : module_(module) {}
  EventContent(const EventContent &) = delete;
  EventContent &operator=(const EventContent &) = delete;
  ~EventContent() {
    cJSON_Delete(static_cast<cJSON *>(root_));
    cJSON_Delete(payload_);
  }

  // False without memory. Content that lacks an item is never handed out: subscribers could not notice.
  bool Add(const ZOR_DMMSG_ITEM &item) {
    if (item.name == nullptr || item.value == nullptr) return true;
    const auto name = CopyField(item.name, item.nameLength);
    const auto value = CopyField(item.value, item.valueLength);
    if (name == nullptr || value == nullptr) return false;
    // A second event type begins the root anew and keeps the payload.
    if (std::strcmp(name.get(), kEventTypeName) == 0) {
      return ZOR_EVT_JsonBeginProc(&root_, module_, value.get()) == ZOR_OK;
    }
    return ZOR_EVT_BuiderJsonProc(&payload_, name.get(), value.get()) == ZOR_OK;
  }

  // The text; null when root or payload is missing.
  char *End() {
    if (ZOR_EVT_EndJsonEndProc(&root_, payload_) != ZOR_OK) return nullptr;
    payload_ = nullptr;
    return static_cast<char *>(std::exchange(root_, nullptr));
  }

 private:
  const char *module_;
  void *root_ = nullptr;
  cJSON *payload_ = nullptr;
};

}  // namespace
}  // namespace zor

uint32_t ZOR_EVT_GetEventContent(const ZOR_MSG_HEAD *msg, char **text, uint32_t *length) {
  if (text == nullptr) return ZOR_EVT_FAILED;
  std::free(*text);
  *text = nullptr;
  const char *module = msg == nullptr ? nullptr : ZOR_EVT_GetEventModuleNameByEventType(msg->type);
  if (module == nullptr) return ZOR_EVT_FAILED;
  zor::EventContent content(module);
  ZOR_DMMSG_ITEM item;
  const void *next = nullptr;
  const auto *dm = static_cast<const ZOR_DMMSG_HEAD *>(zor::BodyOf(msg));
  while (ZOR_DMMSG_GetItem(dm, &item, &next) == ZOR_OK) {
    if (!content.Add(item)) return ZOR_EVT_FAILED;
  }
  *text = content.End();
  if (*text == nullptr) return ZOR_EVT_FAILED;
  if (length != nullptr) *length = static_cast<uint32_t>(std::strlen(*text));
  return ZOR_OK;
}

uint32_t ZOR_EVT_GetEventBody(ZOR_MSG_HEAD *msg, void **body) {
  if (msg == nullptr || body == nullptr) return ZOR_EVT_FAILED;
  *body = zor::BodyOf(msg);
  return ZOR_OK;
}
