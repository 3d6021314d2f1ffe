#include "zorbridge/call_text.h"

#include <zor/msg_wire.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <span>
#include <utility>
#include <vector>

#include "programs/fleet_wire.h"
#include "programs/format_number.h"
#include "programs/messages/base64.h"
#include "programs/messages/body.h"
#include "programs/messages/invalid.h"
#include "programs/messages/json_text.h"
#include "programs/messages/message_types.h"
#include "programs/messages/text.h"

namespace zor::bridge {
namespace {

using messages::Invalid;
using messages::Values;
using types::Field;
using types::FieldKind;
using Json = nlohmann::ordered_json;

constexpr std::size_t kMostReasonBytes = 256;

// Reasons are for the client; what it can do about them is in the manual.
Invalid Wrong(const std::string &what) {
  return {what, {}};
}

std::string Named(std::string_view name) {
  return "\"" + messages::Escape(name) + "\"";
}

// Refuses an object that has members beside these.
void CheckMembers(const Json &object, std::span<const std::string_view> known) {
  for (const auto &member : object.items()) {
    if (std::find(known.begin(), known.end(), member.key()) == known.end()) {
      throw Wrong("unknown member " + Named(member.key()));
    }
  }
}

uint32_t NumberOf(const Json &value, std::string_view name) {
  const bool fits = value.is_number_unsigned() && value.get<uint64_t>() <= UINT32_MAX;
  if (!fits) throw Wrong(Named(name) + " is not a number from 0 to " + std::to_string(UINT32_MAX));
  return value.get<uint32_t>();
}

// A NUL would end the text early, and its rest would be the next field.
const std::string &TextOf(const Json &value, std::string_view name) {
  if (!value.is_string()) throw Wrong(Named(name) + " is not a text");
  const auto &text = value.get_ref<const std::string &>();
  if (text.find('\0') != text.npos) throw Wrong(Named(name) + " contains a NUL");
  return text;
}

Values ItemsOf(const Json &list) {
  static constexpr std::string_view kMembers[] = {"name", "value"};
  if (!list.is_array()) throw Wrong("\"items\" is not a list");
  Values items;
  for (const Json &item : list) {
    if (!item.is_object() || !item.contains("name")) throw Wrong("an item is not an object with a name");
    CheckMembers(item, kMembers);
    items.emplace_back(TextOf(item["name"], "name"), TextOf(item.value("value", Json("")), "value"));
  }
  return items;
}

// The body of a management message.
std::string BodyOfItems(const Json &value) {
  static constexpr std::string_view kMembers[] = {"items", "sub_type"};
  if (!value.is_object()) return messages::EncodeItems(ItemsOf(value), 0);
  CheckMembers(value, kMembers);
  return messages::EncodeItems(ItemsOf(value.value("items", Json::array())),
                               NumberOf(value.value("sub_type", Json(0u)), "sub_type"));
}

// The values of a management message are a body of their own.
void SetFields(const Json &fields, Call &call) {
  const types::Type *known = messages::FindType(call.type);
  if (known == nullptr) throw Wrong("type " + daemon::HexText(call.type) + " has no known fields");
  if (!fields.is_object()) throw Wrong("\"fields\" is not an object");
  const types::Shape shape = known->requestShape();
  const bool isObject = shape.encoding == types::Encoding::kJson;
  Json values = Json::object();
  for (const auto &[name, value] : fields.items()) {
    const Field *field = messages::FindField(shape, name);
    if (field == nullptr && !isObject) {
      throw Wrong("no field " + Named(name) + "; the type has: " + messages::FieldNames(shape));
    }
    if (field != nullptr && field->kind == FieldKind::kItems) {
      call.body = BodyOfItems(value);
    } else {
      // In a record the text would stand for the JSON that it contains.
      const bool isText = field != nullptr && field->kind == FieldKind::kJson && !isObject;
      values[name] = isText ? Json(messages::JsonText(value)) : value;
    }
  }
  messages::Content content = messages::EncodeJson(shape, values);
  call.data = content.data;
  if (!content.body.empty()) call.body = std::move(content.body);
}

std::string BytesOf(const Json &value) {
  if (value.is_string()) {
    if (auto bytes = messages::ParseBase64(value.get_ref<const std::string &>())) return std::move(*bytes);
  }
  throw Wrong("\"base64\" is not base64");
}

Call CallOf(uint32_t type, std::string_view payload) {
  static constexpr std::string_view kMembers[] = {"data", "fields", "base64"};
  Call call{type, 0, {}};
  if (payload.size() > kMostCallBytes) {
    throw Wrong("the payload has more than " + std::to_string(kMostCallBytes) + " bytes");
  }
  if (payload.empty()) return call;
  const Json request = messages::ParseJson(payload);
  if (!request.is_object()) throw Wrong("the payload is not a JSON object, or is too deeply nested");
  CheckMembers(request, kMembers);
  if (request.contains("fields") && request.contains("base64")) throw Wrong("both \"fields\" and \"base64\"");
  if (request.contains("fields")) SetFields(request["fields"], call);
  if (request.contains("base64")) call.body = BytesOf(request["base64"]);
  if (request.contains("data")) call.data = NumberOf(request["data"], "data");
  return call;
}

template <class Make>
auto Try(const Make &make, std::string *problem) -> std::optional<decltype(make())> {
  try {
    return make();
  } catch (const Invalid &invalid) {
    *problem = invalid.what();
    return std::nullopt;
  }
}

// The reply's contents, with their member's name.
std::string ContentMember(uint32_t type, uint32_t data, std::string_view body) {
  if (body.size() > fleet::kMostContentBytes) return {};
  const types::Type *known = messages::FindType(type);
  if (known != nullptr && !known->reply.empty()) {
    return "\"fields\":" + messages::JsonText(messages::Decode(known->replyShape(), data, body));
  }
  const Json plain = messages::DecodeUnknown(body);
  if (plain.contains("hex")) return "\"base64\":\"" + messages::ToBase64(body) + "\"";
  return "\"text\":" + (plain.contains("text") ? messages::JsonText(plain["text"]) : "\"\"");
}

}  // namespace

std::optional<uint32_t> ParseCallType(std::string_view text, std::string *problem) {
  return Try([=] { return messages::ParseType(text); }, problem);
}

std::optional<Call> ParseCall(uint32_t type, std::string_view payload, std::string *problem) {
  return Try([=] { return CallOf(type, payload); }, problem);
}

std::string TextOfReply(uint32_t type, uint32_t data, std::string_view body) {
  std::string members = "\"result\":\"" + std::string(fleet::result::kDone) + "\",\"data\":" + std::to_string(data);
  const std::string content = ContentMember(type, data, body);
  const bool fits = !content.empty() && content.size() <= fleet::kMostContentBytes;
  members += fits ? "," + content : ",\"bytes\":" + std::to_string(body.size()) + ",\"cut\":true";
  return members;
}

std::string TextOfFailure(std::string_view result, std::string_view reason) {
  return messages::JsonMembers({{"result", result}, {"reason", messages::CutText(reason, kMostReasonBytes)}});
}

}  // namespace zor::bridge
