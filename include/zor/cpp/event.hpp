// Events, and notices that some were missed.
#ifndef ZOR_CPP_EVENT_HPP
#define ZOR_CPP_EVENT_HPP

#include <zor/control_wire.h>
#include <zor/event.h>
#include <zor/cpp/message.hpp>

#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zor {
inline namespace face {

/// An event that was received. Everything but body() is its own and may be copied and kept.
class Event {
 public:
  /// Also takes what is no event in the library's form: then only type, source and body say something.
  explicit Event(const ZOR_MSG_HEAD &head)
      : type_(head.type & ZOR_MSG_TYPE_MASK),
        word_(head.data),
        source_(detail::NameOf(head.source)),
        body_(detail::BodyOf(head)) {
    Json json = ParseBody(head);
    module_ = json["Module"].text();
    if (const char *owner = ZOR_EVT_GetEventModuleNameByEventType(type_); module_.empty() && owner != nullptr) {
      module_ = owner;
    }
    name_ = json["EventType"].text();
    timestamp_ = json["Timestamp"].text();
    isJson_ = json.contains("Payload");
    payload_ = json["Payload"];
  }

  std::uint32_t type() const noexcept { return type_; }
  const std::string &module() const noexcept { return module_; }
  const std::string &name() const noexcept { return name_; }
  /// UTC: "2026-01-31T23:59:59Z".
  const std::string &timestamp() const noexcept { return timestamp_; }
  const Json &payload() const noexcept { return payload_; }
  /// The publisher.
  const std::string &source() const noexcept { return source_; }
  std::uint32_t word() const noexcept { return word_; }
  /// The message's body, valid within the handler.
  std::string_view body() const noexcept { return body_; }

  /// The payload as a described type, or the whole body if there is no payload.
  template <typename M>
  Result<M> try_as() const {
    M message{};
    const std::string text = isJson_ ? payload_.dump() : std::string(body_);
    if (!M::decode(text, word_, message)) return Error(ZOR_E_ARGUMENT, "the event does not decode");
    return message;
  }
  template <typename M>
  M as() const {
    return try_as<M>().value();
  }

 private:
  // An event of items becomes JSON first.
  static Json ParseBody(const ZOR_MSG_HEAD &head) {
    const std::string_view body = detail::BodyOf(head);
    if (body.substr(0, 1) == "{") return Take(Json::try_parse(body.substr(0, body.find('\0'))));
    char *text = nullptr;
    std::uint32_t length = 0;
    if (ZOR_EVT_GetEventContent(&head, &text, &length) != ZOR_OK) return {};
    const std::unique_ptr<char, detail::FreeBlock> owner(text);
    return Take(Json::try_parse({text, length}));
  }
  static Json Take(Result<Json> parsed) { return parsed ? std::move(*parsed) : Json(); }

  std::uint32_t type_;
  std::uint32_t word_;
  std::string source_;
  std::string_view body_;
  bool isJson_ = false;
  std::string module_;
  std::string name_;
  std::string timestamp_;
  Json payload_;
};

/// Events that the server did not deliver because this process did not read them in time.
struct Gap {
  struct Count {
    std::uint32_t type = 0;
    std::uint32_t events = 0;
  };
  /// Microseconds since 1970, UTC: the first of them.
  std::uint64_t since_us = 0;
  /// All of them.
  std::uint32_t events = 0;
  /// How many of each type; when there are too many types, some are only in `events`.
  std::vector<Count> types;
};

namespace detail {

inline std::optional<Gap> GapOf(std::string_view body) {
  ZOR_CONTROL_GAP wire;
  if (body.size() < sizeof wire) return std::nullopt;
  std::memcpy(&wire, body.data(), sizeof wire);
  body.remove_prefix(sizeof wire);
  Gap gap;
  gap.since_us = wire.sinceUs;
  gap.events = wire.events;
  for (; body.size() >= sizeof(ZOR_CONTROL_GAP_TYPE); body.remove_prefix(sizeof(ZOR_CONTROL_GAP_TYPE))) {
    ZOR_CONTROL_GAP_TYPE count;
    std::memcpy(&count, body.data(), sizeof count);
    gap.types.push_back({count.type, count.events});
  }
  return gap;
}

}  // namespace detail

}  // namespace face
}  // namespace zor

#endif
