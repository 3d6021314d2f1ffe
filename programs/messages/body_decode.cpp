#include <zor/status.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "programs/messages/body.h"
#include "programs/messages/hex.h"
#include "programs/messages/item_block.h"
#include "programs/messages/json_text.h"
#include "programs/messages/shape.h"
#include "programs/messages/text.h"

namespace zor::messages {
namespace {

using Json = nlohmann::ordered_json;
using Kind = Field::Kind;

// Removes a field's bytes from the front of the body; all that is left if it is shorter.
std::string_view Take(std::string_view &body, size_t size) {
  const std::string_view taken = body.substr(0, size);
  body.remove_prefix(taken.size());
  return taken;
}

Json DecodeNumber(std::string_view bytes, size_t size) {
  if (bytes.size() < size) return ToHex(bytes);
  uint16_t narrow = 0;
  uint32_t word = 0;
  uint64_t wide = 0;
  if (size == 2) return std::memcpy(&narrow, bytes.data(), size), narrow;
  if (size == 4) return std::memcpy(&word, bytes.data(), size), word;
  return std::memcpy(&wide, bytes.data(), size), wide;
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
    case Kind::kNumber:
      return DecodeNumber(Take(body, size), size);
    case Kind::kText:
      return DecodeText(body, field.size);
    case Kind::kItems:
      return DecodeItems(Take(body, size));
    case Kind::kJson:
      return DecodeJson(Take(body, size));
    default:
      return ToHex(Take(body, size));
  }
}

bool IsLineText(std::string text) {
  std::erase_if(text, [](char each) { return each == '\n' || each == '\t'; });
  return IsPrintable(text);
}

}  // namespace

Json Decode(std::string_view shape, uint32_t data, std::string_view body) {
  Json result = Json::object();
  for (const Field &field : ParseShape(shape)) {
    if (field.kind == Kind::kData) {
      result[std::string(field.name)] = data;
    } else if (!body.empty()) {
      result[std::string(field.name)] = DecodeField(field, body);
    }
  }
  if (!body.empty()) result["rest"] = ToHex(body);
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
