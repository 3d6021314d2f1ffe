#include "zorbridge/event_text.h"

#include <zor/event.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "programs/fleet_wire.h"
#include "programs/format_number.h"
#include "programs/messages/base64.h"
#include "programs/messages/event.h"
#include "programs/messages/json_text.h"
#include "programs/messages/text.h"

namespace zor::bridge {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kNameMember = "EventType";
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::size_t kMostNameBytes = 256;

// Reads a text without keeping it, for its validity and for the event's name. A value for each event would cost more
// than all else that is done with it.
class Scan : public nlohmann::json_sax<Json> {
 public:
  std::string name;

  bool null() override { return true; }
  bool boolean(bool /*value*/) override { return true; }
  bool number_integer(number_integer_t /*value*/) override { return true; }
  bool number_unsigned(number_unsigned_t /*value*/) override { return true; }
  bool number_float(number_float_t /*value*/, const string_t & /*digits*/) override { return true; }
  bool string(string_t &value) override {
    if (depth_ == 1 && isName_) name = value;
    return true;
  }
  bool binary(binary_t & /*value*/) override { return false; }
  bool start_object(std::size_t /*size*/) override { return Enter(); }
  bool key(string_t &value) override {
    if (depth_ == 1) isName_ = value == kNameMember;
    return true;
  }
  bool end_object() override { return Leave(); }
  bool start_array(std::size_t /*size*/) override { return Enter(); }
  bool end_array() override { return Leave(); }
  bool parse_error(std::size_t /*at*/, const std::string & /*token*/, const Json::exception & /*error*/) override {
    return false;
  }

 private:
  bool Enter() { return ++depth_ <= messages::kMaxJsonDepth; }
  bool Leave() {
    --depth_;
    return true;
  }

  std::size_t depth_ = 0;
  bool isName_ = false;  // the latest key of the outermost object is that of the name
};

// Valid JSON without white space between its tokens.
std::string Compact(std::string_view json) {
  std::string compact;
  compact.reserve(json.size());
  bool inString = false;
  bool escaped = false;
  for (const char each : json) {
    if (!inString && (each == ' ' || each == '\n' || each == '\t' || each == '\r')) continue;
    if (each == '"' && !escaped) inString = !inString;
    escaped = inString && each == '\\' && !escaped;
    compact += each;
  }
  return compact;
}

struct Content {
  std::string name;
  std::optional<std::string> json;
};

Content ContentOf(uint32_t type, std::string_view body) {
  Scan scan;
  if (body.size() > fleet::kMostContentBytes) {
    // The name is near the front of what the library publishes.
    if (messages::IsJsonEvent(type)) Json::sax_parse(body.substr(0, fleet::kMostContentBytes), &scan);
    return {scan.name, std::nullopt};
  }
  const std::string text = messages::ToUtf8(messages::EventText(type, body));
  std::string_view json = text;
  if (json.starts_with(kByteOrderMark)) json.remove_prefix(kByteOrderMark.size());
  if (!Json::sax_parse(json, &scan)) return {scan.name, std::nullopt};
  return {scan.name, Compact(json)};
}

// The members that follow the type.
std::string ContentMembers(const Content &content, uint32_t data, std::string_view body) {
  if (content.json && content.json->size() <= fleet::kMostContentBytes) return "\"event\":" + *content.json;
  if (!content.json && body.size() <= fleet::kMostContentBytes / 4 * 3) {
    return "\"data\":" + std::to_string(data) + ",\"base64\":\"" + messages::ToBase64(body) + "\"";
  }
  return "\"bytes\":" + std::to_string(body.size()) + ",\"cut\":true";
}

}  // namespace

std::string EventModule(uint32_t type) {
  std::string module = messages::EventModuleOf(type);
  return module.empty() ? daemon::HexText(type) : module;
}

EventRecord TextOfEvent(uint32_t type, uint32_t data, std::string_view body) {
  const Content content = ContentOf(type, body);
  const std::string_view name = messages::CutText(content.name, kMostNameBytes);
  EventRecord record;
  record.module = EventModule(type);
  record.topic = fleet::Topic({fleet::topic::kEvent, record.module, name});
  record.group = fleet::Topic({fleet::topic::kEvent, record.module});
  record.members = "\"module\":" + messages::JsonString(record.module) + ",\"name\":" + messages::JsonString(name) +
                   ",\"type\":" + std::to_string(type) + "," + ContentMembers(content, data, body);
  return record;
}

}  // namespace zor::bridge
