// The JSON object of an event, while it is built.
#ifndef SDK_EVENT_EVENT_JSON_H
#define SDK_EVENT_EVENT_JSON_H

#include <cjson/cJSON.h>

#include <memory>

namespace zor {

inline constexpr char kEventTypeName[] = "EventType";

struct JsonDeleter {
  void operator()(cJSON *json) const noexcept { cJSON_Delete(json); }
  void operator()(char *text) const noexcept { cJSON_free(text); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;
using JsonText = std::unique_ptr<char, JsonDeleter>;  // as cJSON prints it

// An event without its payload; null without memory.
JsonPtr NewEvent(const char *module, const char *eventName, const char *timestamp) noexcept;

// Moves the payload into the event; false without memory, and the payload stays the caller's.
bool AddPayload(cJSON &event, cJSON *payload) noexcept;

}  // namespace zor

#endif
