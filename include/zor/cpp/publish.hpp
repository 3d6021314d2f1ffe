// How events are put together: JSON for the types that carry it, items for the others, as their subscribers expect.
#ifndef ZOR_CPP_PUBLISH_HPP
#define ZOR_CPP_PUBLISH_HPP

#include <zor/event.h>
#include <zor/nvpair.h>
#include <zor/cpp/message.hpp>

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace zor {
inline namespace face {
namespace detail {

inline std::string TimestampNow() {
  char text[sizeof "YYYY-MM-DDThh:mm:ssZ"] = "";
  const std::time_t now = std::time(nullptr);
  std::tm utc = {};
  if (::gmtime_r(&now, &utc) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

inline std::uint32_t PublishJson(std::string_view module, std::string_view name, std::uint32_t type,
                                 std::string_view payload) {
  std::string text = "{\"Method\":\"notify\",\"Module\":";
  Json::append_quoted(text, module);
  text += ",\"EventType\":";
  Json::append_quoted(text, name);
  text += ",\"Timestamp\":\"" + TimestampNow() + "\",\"Payload\":";
  text += payload;
  text += '}';
  return ZOR_MSG_SendMsgData(nullptr, type, text.data(), static_cast<std::uint32_t>(text.size()));
}

/// Members become items; those that are no texts become their JSON text.
inline std::uint32_t PublishItems(const std::string &name, std::uint32_t type, const Json &payload) {
  std::vector<std::string> texts;
  for (const JsonMember &member : payload.members()) {
    texts.push_back(member.name);
    texts.push_back(member.value.is_text() ? std::string(member.value.text()) : member.value.dump());
  }
  std::vector<ZOR_NVPAIR> pairs(texts.size() / 2);
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    pairs[i].next = i + 1 < pairs.size() ? &pairs[i + 1] : nullptr;
    pairs[i].name = texts[2 * i].data();
    pairs[i].value = texts[2 * i + 1].data();
  }
  return ZOR_EVT_PublishEventWithNVPair(type, name.c_str(), pairs.empty() ? nullptr : pairs.data());
}

inline Result<void> Publish(std::string_view module, std::string_view name, std::uint32_t type, const Json &payload) {
  if (!payload.is_object() && !payload.is_null()) return Error(ZOR_E_ARGUMENT, "the payload of an event is an object");
  if (type >= ZOR_EVT_JSON_FIRST && type <= ZOR_EVT_JSON_LAST) {
    return ResultOf(PublishJson(module, name, type, payload.is_null() ? "{}" : payload.dump()));
  }
  if (!IsEvent(type) || type == ZOR_EVT_ALL) return Error(ZOR_E_ARGUMENT, "not the type of an event");
  return ResultOf(PublishItems(std::string(name), type, payload));
}

}  // namespace detail
}  // namespace face
}  // namespace zor

#endif
