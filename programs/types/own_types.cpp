#include "programs/types/own_types.h"

#include <algorithm>

namespace zor::types {
namespace {

// The columns of the generated table.
struct Row {
  uint32_t first;
  uint32_t last;
  std::string_view name;
  std::string_view to;
  std::string_view kind;
  std::string_view request;
  std::string_view reply;
  std::string_view meaning;
};

constexpr Row kRows[] = {
#include "programs/types/own_type_table.inc"
};

Kind KindOf(std::string_view text) {
  Kind kind = Kind::kRequest;
  while (KindText(kind) != text && kind != Kind::kNotice) kind = static_cast<Kind>(static_cast<int>(kind) + 1);
  return kind;
}

// The generator has checked it.
Field ParseField(std::string_view text) {
  const size_t colon = text.find(':');
  Field field;
  field.inData = text.substr(0, colon) == "data";
  field.name = text.substr(colon + 1);
  SetFieldType(field, field.inData ? "u32" : text.substr(0, colon));
  return field;
}

std::vector<Type> MakeTypes() {
  std::vector<Type> types;
  types.reserve(std::size(kRows));
  for (const Row &row : kRows) {
    Type &type = types.emplace_back();
    type.first = row.first;
    type.last = row.last;
    type.nameSpace = kOwnNamespace;
    type.name = row.name;
    type.to = row.to;
    type.kind = KindOf(row.kind);
    type.meaning = row.meaning;
    type.request = ParseShape(row.request);
    type.reply = ParseShape(row.reply);
  }
  return types;
}

}  // namespace

const std::vector<Type> &OwnTypes() {
  static const std::vector<Type> types = MakeTypes();
  return types;
}

std::vector<Field> ParseShape(std::string_view shape) {
  std::vector<Field> fields;
  if (shape == "-") return fields;
  while (!shape.empty()) {
    const size_t end = std::min(shape.find(' '), shape.size());
    fields.push_back(ParseField(shape.substr(0, end)));
    shape.remove_prefix(std::min(end + 1, shape.size()));
  }
  return fields;
}

}  // namespace zor::types
