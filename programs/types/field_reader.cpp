#include "programs/types/field_reader.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace zor::types {
namespace {

using Json = nlohmann::json;

constexpr size_t kMaxNameBytes = 64;
constexpr size_t kDataBytes = 4;
// Where decoded messages keep what no field describes.
constexpr std::string_view kReserved[] = {"rest", "unknown"};

bool IsIntegerOf(const Field &field, const Json &value) {
  const size_t bits = field.size * 8;
  if (value.is_number_unsigned()) {
    const auto number = value.get<uint64_t>();
    const size_t digits = field.kind == FieldKind::kSigned ? bits - 1 : bits;
    return digits == 64 || number < uint64_t{1} << digits;
  }
  if (!value.is_number_integer() || field.kind != FieldKind::kSigned) return false;
  return value.get<int64_t>() >= std::numeric_limits<int64_t>::min() >> (64 - bits);
}

bool IsHexDigits(const std::string &text) {
  return text.size() % 2 == 0 && text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
}

// Texts of fixed size hold at least one NUL.
bool IsDefaultOf(const Field &field, const Json &value) {
  switch (field.kind) {
    case FieldKind::kUnsigned:
    case FieldKind::kSigned:
      return IsIntegerOf(field, value);
    case FieldKind::kReal:
      return value.is_number();
    case FieldKind::kBool:
      return value.is_boolean();
    case FieldKind::kText:
      return value.is_string() && (field.size == 0 || value.get_ref<const std::string &>().size() < field.size) &&
             value.get_ref<const std::string &>().find('\0') == std::string::npos;
    case FieldKind::kBytes:
      return value.is_string() && IsHexDigits(value.get_ref<const std::string &>()) &&
             (field.size == 0 || value.get_ref<const std::string &>().size() <= field.size * 2);
    case FieldKind::kItems:
      return false;
    case FieldKind::kJson:
      return true;
  }
  return false;
}

void ReadPlace(const Node &node, Field &field, Encoding encoding) {
  const std::optional<Node> in = node.Find("in");
  if (in) {
    const std::string place = in->Text().value_or("body");
    field.inData = place == "data";
    if (place != "data" && place != "body") in->Report("not \"data\" or \"body\"");
  }
  const bool fits = (field.isInteger() || field.kind == FieldKind::kBool) && field.size <= kDataBytes;
  if (field.inData && !fits) node.Report("the data word holds only an integer of at most 32 bits, or a bool");
  if (encoding == Encoding::kJson && field.kind == FieldKind::kItems) node.Report("items are not JSON");
}

void ReadDefault(const Node &node, Field &field) {
  const std::optional<Node> value = node.Find("default");
  if (!value) return;
  if (!IsDefaultOf(field, value->value())) {
    value->Report("does not fit the type " + field.typeText);
    return;
  }
  field.defaultValue = value->value().dump(-1, ' ', false, Json::error_handler_t::replace);
}

Field ReadField(const Node &node, Encoding encoding) {
  Field field;
  if (!node.IsObject({"name", "type", "in", "unit", "meaning", "since", "default"})) return field;
  field.name = node.RequiredTextOf("name");
  const std::optional<Node> name = node.Find("name");
  if (!field.name.empty() && !IsIdentifier(field.name)) name->Report("not letters, digits and _, a letter first");
  if (field.name.size() > kMaxNameBytes) name->Report("longer than " + std::to_string(kMaxNameBytes) + " characters");
  if (std::find(std::begin(kReserved), std::end(kReserved), field.name) != std::end(kReserved)) {
    name->Report("reserved");
  }
  const std::string type = node.RequiredTextOf("type");
  field.unit = node.TextOf("unit");
  field.meaning = node.TextOf("meaning");
  field.since = node.TextOf("since");
  if (type.empty()) return field;
  if (!SetFieldType(field, type)) {
    node.Find("type")->Report(
        "unknown type \"" + type +
        "\"; the types are u8 u16 u32 u64 i8 i16 i32 i64 f64 bool name text textN bytes bytesN items json");
    return field;
  }
  ReadPlace(node, field, encoding);
  ReadDefault(node, field);
  return field;
}

// Takes all that is left of the body.
bool IsOpen(const Field &field) {
  return !field.inData && field.size == 0 && field.kind != FieldKind::kText && !field.typeText.empty();
}

// What each field alone does not show.
void CheckTogether(const Node &node, const std::vector<Field> &before, Encoding encoding) {
  if (before.size() < 2) return;
  const Field &field = before.back();
  const auto end = before.end() - 1;
  if (std::any_of(before.begin(), end, [&](const Field &each) { return each.name == field.name; })) {
    node.Report("a second field \"" + field.name + "\"");
  }
  if (field.inData && std::any_of(before.begin(), end, [](const Field &each) { return each.inData; })) {
    node.Report("a second field in the data word");
  }
  const auto open = std::find_if(before.begin(), end, IsOpen);
  if (encoding == Encoding::kRecord && !field.inData && open != end) {
    node.Report("nothing can follow \"" + open->name + "\", which takes the rest of the body");
  }
}

}  // namespace

bool IsIdentifier(std::string_view text) {
  const auto isLetter = [](char each) { return (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z'); };
  const auto isPart = [&](char each) { return isLetter(each) || each == '_' || (each >= '0' && each <= '9'); };
  return !text.empty() && isLetter(text.front()) && std::all_of(text.begin(), text.end(), isPart);
}

std::vector<Field> ReadFields(const Node &list, Encoding encoding) {
  std::vector<Field> fields;
  for (const Node &node : list.Items(kMaxFields)) {
    fields.push_back(ReadField(node, encoding));
    CheckTogether(node, fields, encoding);
  }
  return fields;
}

}  // namespace zor::types
