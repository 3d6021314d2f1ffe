#include <zor/status.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>

#include "programs/messages/body.h"
#include "programs/messages/hex.h"
#include "programs/messages/invalid.h"
#include "programs/messages/item_block.h"
#include "programs/messages/json_text.h"
#include "programs/messages/number.h"
#include "programs/messages/text.h"
#include "programs/settings.h"

namespace zor::messages {
namespace {

using types::Encoding;
using types::Field;
using types::FieldKind;
using types::Shape;
using Json = nlohmann::ordered_json;

constexpr char kRest[] = "rest";

Invalid DoesNotFit(const Field &field, const std::string &what) {
  return {field.name + " " + what, "check the value"};
}

// What the command line says of a number: decimal or with 0x, perhaps with a sign.
Json NumberOf(const Field &field, std::string_view text) {
  if (field.kind == FieldKind::kUnsigned && field.size <= sizeof(uint32_t)) return RequireUint32(text, field.name);
  if (field.kind == FieldKind::kReal) {
    Json number = ParseJson(text);
    if (number.is_number()) return number;
    throw Invalid(field.name + " is not a number: " + Escape(text), "write 42 or 0.5");
  }
  const bool isNegative = field.kind == FieldKind::kSigned && text.starts_with('-');
  uint64_t number = 0;
  if (!daemon::ParseNumber(text.substr(isNegative ? 1 : 0), &number) || (isNegative && number > uint64_t{1} << 63)) {
    throw Invalid(field.name + " is not a number: " + Escape(text), "write 42 or 0x2A");
  }
  // Through unsigned numbers: the least one has no positive counterpart.
  return isNegative ? Json(static_cast<int64_t>(uint64_t{0} - number)) : Json(number);
}

Json BoolOf(const Field &field, std::string_view text) {
  if (text == "true" || text == "1") return true;
  if (text == "false" || text == "0") return false;
  throw Invalid(field.name + " is not a bool: " + Escape(text), "write true or false");
}

Json ValueOf(const Field &field, const std::string &text) {
  if (field.isNumber()) return NumberOf(field, text);
  if (field.kind == FieldKind::kBool) return BoolOf(field, text);
  return text;
}

// The lowest `size` bytes of a number, in the sender's byte order, as all integers have it.
std::string Lowest(uint64_t number, size_t size) {
  const auto byte = static_cast<uint8_t>(number);
  const auto narrow = static_cast<uint16_t>(number);
  const auto word = static_cast<uint32_t>(number);
  std::string bytes(size, '\0');
  if (size == sizeof byte) std::memcpy(bytes.data(), &byte, size);
  if (size == sizeof narrow) std::memcpy(bytes.data(), &narrow, size);
  if (size == sizeof word) std::memcpy(bytes.data(), &word, size);
  if (size == sizeof number) std::memcpy(bytes.data(), &number, size);
  return bytes;
}

uint64_t UnsignedOf(const Field &field, const Json &value) {
  const uint64_t most = UINT64_MAX >> (64 - 8 * field.size);
  if (!value.is_number_unsigned() && !(value.is_number_integer() && value.get<int64_t>() >= 0)) {
    throw DoesNotFit(field, "is not a number from 0 to " + std::to_string(most));
  }
  const auto number = value.get<uint64_t>();
  if (number > most) throw DoesNotFit(field, "is above " + std::to_string(most));
  return number;
}

uint64_t SignedOf(const Field &field, const Json &value) {
  const int64_t most = INT64_MAX >> (64 - 8 * field.size);
  const bool isBeyond = value.is_number_unsigned() && value.get<uint64_t>() > static_cast<uint64_t>(most);
  const bool fits = value.is_number_integer() && !isBeyond && value.get<int64_t>() >= -most - 1;
  if (fits) return static_cast<uint64_t>(value.get<int64_t>());
  throw DoesNotFit(field, "is not a number from " + std::to_string(-most - 1) + " to " + std::to_string(most));
}

// The value as a number of 64 bits, of which the field has the lowest.
uint64_t IntegerOf(const Field &field, const Json &given) {
  const Json value = given.is_string() ? ValueOf(field, given.get<std::string>()) : given;
  if (field.kind == FieldKind::kUnsigned) return UnsignedOf(field, value);
  if (field.kind == FieldKind::kSigned) return SignedOf(field, value);
  if (!value.is_boolean()) throw DoesNotFit(field, "is not true or false");
  return value.get<bool>() ? 1 : 0;
}

double RealOf(const Field &field, const Json &given) {
  // As such numbers are shown, since JSON has none for them.
  if (given == "nan") return NAN;
  if (given == "inf" || given == "-inf") return given == "inf" ? INFINITY : -INFINITY;
  const Json value = given.is_string() ? NumberOf(field, given.get<std::string>()) : given;
  if (!value.is_number()) throw DoesNotFit(field, "is not a number");
  return value.get<double>();
}

std::string TextOf(const Field &field, const Json &value) {
  if (!value.is_string()) throw DoesNotFit(field, "is not a text");
  return value.get<std::string>();
}

std::string EncodeText(const Field &field, std::string value) {
  if (value.find('\0') != value.npos) throw DoesNotFit(field, "contains a NUL");
  if (field.size != 0 && value.size() >= field.size) {
    throw DoesNotFit(field, "has more than " + std::to_string(field.size - 1) + " characters");
  }
  value.resize(field.size == 0 ? value.size() + 1 : field.size);
  return value;
}

std::string EncodeBytes(const Field &field, const std::string &value) {
  std::string bytes = ParseHex(value);
  if (field.size != 0 && bytes.size() > field.size) {
    throw DoesNotFit(field, "has more than " + std::to_string(field.size) + " bytes");
  }
  if (field.size != 0) bytes.resize(field.size);
  return bytes;
}

// A field of a record; null stands for no value.
std::string EncodeField(const Field &field, const Json &value) {
  switch (field.kind) {
    case FieldKind::kUnsigned:
    case FieldKind::kSigned:
    case FieldKind::kBool:
      return value.is_null() ? std::string(field.size, '\0') : Lowest(IntegerOf(field, value), field.size);
    case FieldKind::kReal: {
      const double number = value.is_null() ? 0 : RealOf(field, value);
      std::string bytes(sizeof number, '\0');
      std::memcpy(bytes.data(), &number, sizeof number);
      return bytes;
    }
    case FieldKind::kText:
      return EncodeText(field, value.is_null() ? "" : TextOf(field, value));
    case FieldKind::kBytes:
      return EncodeBytes(field, value.is_null() ? "" : TextOf(field, value));
    case FieldKind::kJson:
      // A text of JSON goes as it is; so does one that is none, which lets a script try a daemon with it.
      return value.is_null() ? "" : value.is_string() ? value.get<std::string>() : JsonText(value);
    case FieldKind::kItems:
      throw Invalid("items are not a field", "use --item NAME=VALUE");
  }
  return {};
}

Json DefaultOf(const Field &field) {
  return field.defaultValue.empty() ? Json() : ParseJson(field.defaultValue);
}

Content EncodeRecord(Shape shape, const Json &values) {
  Content content;
  bool hasBody = false;
  for (const Field &field : shape.fields) {
    const auto given = values.find(field.name);
    const Json value = given == values.end() ? DefaultOf(field) : *given;
    if (field.inData) {
      content.data = value.is_null() ? 0 : static_cast<uint32_t>(IntegerOf(field, value));
    } else {
      hasBody = hasBody || given != values.end();
      if (field.kind != FieldKind::kItems || given != values.end()) content.body += EncodeField(field, value);
    }
  }
  if (!hasBody) content.body.clear();
  if (const auto rest = values.find(kRest); rest != values.end()) {
    if (!rest->is_string()) throw Invalid("rest is not hexadecimal digits", "check the value");
    content.body += ParseHex(rest->get<std::string>());
  }
  return content;
}

// The value as a member of an object: what a record could not hold, an object cannot either.
Json MemberOf(const Field &field, const Json &value) {
  switch (field.kind) {
    case FieldKind::kUnsigned:
      return IntegerOf(field, value);
    case FieldKind::kSigned:
      return static_cast<int64_t>(IntegerOf(field, value));
    case FieldKind::kBool:
      return IntegerOf(field, value) != 0;
    case FieldKind::kReal: {
      const double number = RealOf(field, value);
      if (!std::isfinite(number)) throw DoesNotFit(field, "is not finite, which JSON has no number for");
      return number;
    }
    case FieldKind::kText:
      EncodeText(field, TextOf(field, value));
      return value;
    case FieldKind::kBytes:
      EncodeBytes(field, TextOf(field, value));
      return value;
    default:
      return value;
  }
}

Content EncodeObject(Shape shape, const Json &values) {
  Content content;
  Json object = Json::object();
  for (const auto &[name, value] : values.items()) {
    const Field *field = FindField(shape, name);
    if (field != nullptr && field->inData) {
      content.data = static_cast<uint32_t>(IntegerOf(*field, value));
    } else {
      object[name] = field == nullptr ? value : MemberOf(*field, value);
    }
  }
  if (!object.empty()) content.body = JsonText(object);
  return content;
}

Invalid NoField(std::string_view name, Shape shape) {
  return {"no field " + Escape(name), "the type has: " + FieldNames(shape)};
}

}  // namespace

std::string FieldNames(Shape shape) {
  std::vector<std::string> names;
  for (const Field &field : shape.fields) names.push_back(field.name);
  return names.empty() ? "none" : Join(names, ", ");
}

const Field *FindField(Shape shape, std::string_view name) {
  const auto found =
      std::find_if(shape.fields.begin(), shape.fields.end(), [&](const Field &field) { return field.name == name; });
  return found == shape.fields.end() ? nullptr : &*found;
}

Content EncodeJson(Shape shape, const Json &values) {
  if (!values.is_object()) throw Invalid("the fields are not a JSON object", "write {\"FIELD\":VALUE}");
  if (shape.encoding == Encoding::kJson) return EncodeObject(shape, values);
  for (const auto &[name, value] : values.items()) {
    if (name != kRest && FindField(shape, name) == nullptr) throw NoField(name, shape);
  }
  return EncodeRecord(shape, values);
}

Content Encode(Shape shape, const Values &values) {
  Json object = Json::object();
  for (const auto &[name, text] : values) {
    const Field *field = FindField(shape, name);
    if (field == nullptr) throw NoField(name, shape);
    if (field->kind == FieldKind::kItems) throw Invalid("items are not a field", "use --item NAME=VALUE");
    if (object.contains(name)) continue;  // the first one counts
    object[name] = ValueOf(*field, text);
    if (field->kind != FieldKind::kJson || shape.encoding == Encoding::kRecord) continue;
    if (Json value = ParseJson(text); !value.is_discarded()) object[name] = std::move(value);
  }
  return EncodeJson(shape, object);
}

std::string EncodeItems(const Values &items, uint32_t subType) {
  ZOR_DMMSG_HEAD *made = nullptr;
  uint32_t status = ZOR_DMMSG_Builder(&made, "", subType);
  for (const auto &[name, value] : items) {
    if (status != ZOR_OK) break;
    status = ZOR_DMMSG_AppendItem(&made, 0, name.c_str(), value.c_str(), static_cast<uint32_t>(value.size() + 1));
  }
  const ItemBlock block(made);
  if (status != ZOR_OK) throw Invalid("the body is too large", "give fewer or shorter items");
  block->capacity -= block->free;
  block->free = 0;
  return {reinterpret_cast<const char *>(block.get()), block->capacity};
}

}  // namespace zor::messages
