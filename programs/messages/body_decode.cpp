#include <zor/status.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>

#include "programs/messages/body.h"
#include "programs/messages/hex.h"
#include "programs/messages/item_block.h"
#include "programs/messages/json_text.h"
#include "programs/messages/text.h"

namespace zor::messages {
namespace {

using Json = nlohmann::ordered_json;
using types::Encoding;
using types::Field;
using types::FieldKind;
using types::Shape;

// Removes a field's bytes from the front of the body; all that is left if it is shorter.
std::string_view Take(std::string_view &body, size_t size) {
  const std::string_view taken = body.substr(0, size);
  body.remove_prefix(taken.size());
  return taken;
}

// A number of that size; the number's own type is the widest of its kind.
template <class Wide, class... Sizes>
Json DecodeInteger(std::string_view bytes) {
  Wide wide = 0;
  const auto take = [&](auto number) {
    if (sizeof number != bytes.size()) return;
    std::memcpy(&number, bytes.data(), sizeof number);
    wide = number;  // NOLINT(bugprone-signed-char-misuse): it keeps its sign
  };
  (take(Sizes{}), ...);
  return wide;
}

Json DecodeNumber(const Field &field, std::string_view bytes) {
  if (bytes.size() < field.size) return ToHex(bytes);
  if (field.kind == FieldKind::kBool) return bytes[0] != '\0';
  if (field.kind == FieldKind::kSigned) return DecodeInteger<int64_t, int8_t, int16_t, int32_t, int64_t>(bytes);
  if (field.kind == FieldKind::kUnsigned) return DecodeInteger<uint64_t, uint8_t, uint16_t, uint32_t, uint64_t>(bytes);
  double real = 0;
  std::memcpy(&real, bytes.data(), sizeof real);
  return std::isfinite(real) ? Json(real) : Json(std::isnan(real) ? "nan" : real > 0 ? "inf" : "-inf");
}

Json DecodeText(std::string_view &body, size_t size) {
  if (size != 0) {
    const std::string_view field = Take(body, size);
    return std::string(FieldText(field.data(), field.size()));
  }
  const size_t length = std::min(body.find('\0'), body.size());
  return std::string(Take(body, length + 1).substr(0, length));
}

// The value if it is text, otherwise "0x" and hexadecimal digits.
std::string ItemValue(const ZOR_DMMSG_ITEM &item) {
  const std::string_view value(static_cast<const char *>(item.value), item.value == nullptr ? 0 : item.valueLength);
  const Json known = DecodeUnknown(value);
  if (known.contains("text")) return known["text"];
  return value.empty() ? "" : "0x" + ToHex(value);
}

std::string ItemName(const ZOR_DMMSG_ITEM &item) {
  return item.name == nullptr ? "" : std::string(FieldText(item.name, item.nameLength));
}

// Some replies end in zero bytes after their items, which are skipped.
Json DecodeItems(std::string_view body) {
  const ItemBlock block = ItemBlockOf(body);
  if (block == nullptr) return DecodeUnknown(body);
  Json items = Json::array();
  ZOR_DMMSG_ITEM item;
  const void *iterator = nullptr;
  while (ZOR_DMMSG_GetItem(block.get(), &item, &iterator) == ZOR_OK) {
    if (item.nameLength != 0 || item.valueLength != 0) {
      items.push_back({{"name", ItemName(item)}, {"value", ItemValue(item)}});
    }
  }
  return {{"error_code", block->errorCode}, {"sub_type", block->subType}, {"items", items}};
}

Json DecodeJson(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  Json value = ParseJson(text);
  return value.is_discarded() ? Json(text) : value;
}

Json DecodeField(const Field &field, std::string_view &body) {
  const size_t size = field.size == 0 ? body.size() : field.size;
  switch (field.kind) {
    case FieldKind::kText:
      return DecodeText(body, field.size);
    case FieldKind::kBytes:
      return ToHex(Take(body, size));
    case FieldKind::kItems:
      return DecodeItems(Take(body, size));
    case FieldKind::kJson:
      return DecodeJson(Take(body, size));
    default:
      return DecodeNumber(field, Take(body, size));
  }
}

Json DecodeData(const Field &field, uint32_t data) {
  if (field.kind == FieldKind::kBool) return data != 0;
  return field.kind == FieldKind::kSigned ? Json(static_cast<int32_t>(data)) : Json(data);
}

void AddDefault(const Field &field, Json &result) {
  if (!field.defaultValue.empty()) result[field.name] = ParseJson(field.defaultValue);
}

void DecodeRecord(Shape shape, std::string_view body, uint32_t data, Json &result) {
  for (const Field &field : shape.fields) {
    if (field.inData) {
      result[field.name] = DecodeData(field, data);
    } else if (!body.empty()) {
      result[field.name] = DecodeField(field, body);
    } else {
      AddDefault(field, result);
    }
  }
  if (!body.empty()) result["rest"] = ToHex(body);
}

// The described members first, in their order.
void DecodeObject(Shape shape, const Json &object, uint32_t data, Json &result) {
  for (const Field &field : shape.fields) {
    const auto member = object.find(field.name);
    if (field.inData) {
      result[field.name] = DecodeData(field, data);
    } else if (member != object.end()) {
      result[field.name] = *member;
    } else {
      AddDefault(field, result);
    }
  }
  for (const auto &[name, value] : object.items()) {
    if (FindField(shape, name) == nullptr) result[name] = value;
  }
}

bool IsLineText(std::string text) {
  std::erase_if(text, [](char each) { return each == '\n' || each == '\t'; });
  return IsPrintable(text);
}

}  // namespace

Json Decode(Shape shape, uint32_t data, std::string_view body) {
  Json result = Json::object();
  if (shape.encoding == Encoding::kRecord) {
    DecodeRecord(shape, body, data, result);
    return result;
  }
  const Json object = ParseJson(body.substr(0, body.find('\0')));
  DecodeObject(shape, object.is_object() ? object : Json::object(), data, result);
  if (!object.is_object() && !body.empty()) result.update(DecodeUnknown(body));
  return result;
}

Json DecodeUnknown(std::string_view body) {
  Json result = Json::object();
  if (body.empty()) return result;
  const std::string_view text = body.substr(0, body.size() - (body.back() == '\0' ? 1 : 0));
  if (IsLineText(std::string(text))) {
    result["text"] = text;
  } else {
    result["hex"] = ToHex(body);
  }
  return result;
}

}  // namespace zor::messages
