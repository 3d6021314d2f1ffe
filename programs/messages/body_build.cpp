#include <zor/status.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "programs/messages/body.h"
#include "programs/messages/hex.h"
#include "programs/messages/invalid.h"
#include "programs/messages/item_block.h"
#include "programs/messages/number.h"
#include "programs/messages/shape.h"
#include "programs/messages/text.h"

namespace zor::messages {
namespace {

using Kind = Field::Kind;

Invalid DoesNotFit(const Field &field, const std::string &what) {
  return {std::string(field.name) + " " + what, "check the value"};
}

std::string EncodeNumber(const Field &field, const std::string &value) {
  const uint32_t number = RequireUint32(value, field.name);
  if (field.size == 2 && number > UINT16_MAX) throw DoesNotFit(field, "is above 65535");
  const uint64_t wide = number;
  const auto narrow = static_cast<uint16_t>(number);
  std::string bytes(field.size, '\0');
  // The sender's byte order, as all integers have it.
  if (field.size == 2) std::memcpy(bytes.data(), &narrow, field.size);
  if (field.size == 4) std::memcpy(bytes.data(), &number, field.size);
  if (field.size == 8) std::memcpy(bytes.data(), &wide, field.size);
  return bytes;
}

std::string EncodeText(const Field &field, std::string value) {
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

std::string EncodeField(const Field &field, const std::optional<std::string> &value) {
  switch (field.kind) {
    case Kind::kNumber:
      return EncodeNumber(field, value.value_or("0"));
    case Kind::kText:
      return EncodeText(field, value.value_or(""));
    case Kind::kBytes:
      return EncodeBytes(field, value.value_or(""));
    case Kind::kJson:
      return value.value_or("");
    default:
      return {};
  }
}

std::optional<std::string> ValueOf(const Field &field, const Values &values) {
  const auto found =
      std::find_if(values.begin(), values.end(), [&](const auto &value) { return value.first == field.name; });
  return found == values.end() ? std::nullopt : std::optional(found->second);
}

void CheckNames(const std::vector<Field> &fields, const Values &values) {
  for (const auto &given : values) {
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const Field &field) { return field.name == given.first; });
    if (found == fields.end()) {
      throw Invalid("no field " + Escape(given.first), "the type has: " + FieldNames(fields));
    }
    if (found->kind == Kind::kItems) throw Invalid("items are not a field", "use --item NAME=VALUE");
  }
}

}  // namespace

Content Encode(std::string_view shape, const Values &values) {
  const std::vector<Field> fields = ParseShape(shape);
  CheckNames(fields, values);
  Content content;
  bool hasBody = false;
  for (const Field &field : fields) {
    const std::optional<std::string> value = ValueOf(field, values);
    if (field.kind == Kind::kData) {
      content.data = RequireUint32(value.value_or("0"), field.name);
    } else {
      hasBody = hasBody || value.has_value();
      content.body += EncodeField(field, value);
    }
  }
  if (!hasBody) content.body.clear();
  return content;
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
