#include "programs/messages/shape.h"

#include <algorithm>
#include <charconv>

#include "programs/messages/text.h"

namespace zor::messages {
namespace {

using Kind = Field::Kind;

struct KindName {
  std::string_view name;
  Kind kind;
  size_t size;
};

constexpr KindName kKinds[] = {
    {"data", Kind::kData, 4},   {"u16", Kind::kNumber, 2},  {"u32", Kind::kNumber, 4},
    {"u64", Kind::kNumber, 8},  {"name", Kind::kText, 12},  {"text", Kind::kText, 0},
    {"bytes", Kind::kBytes, 0}, {"items", Kind::kItems, 0}, {"json", Kind::kJson, 0},
};

Field ParseField(std::string_view text) {
  const size_t colon = text.find(':');
  const std::string_view kindText = text.substr(0, colon);
  for (const KindName &kind : kKinds) {
    if (!kindText.starts_with(kind.name)) continue;
    Field field = {kind.kind, kind.size, text.substr(colon + 1)};
    const std::string_view digits = kindText.substr(kind.name.size());
    std::from_chars(digits.data(), digits.data() + digits.size(), field.size);
    return field;
  }
  return {Kind::kBytes, 0, text};  // the table's generator refuses others
}

}  // namespace

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

std::string FieldNames(const std::vector<Field> &fields) {
  std::vector<std::string> names;
  for (const Field &field : fields) names.emplace_back(field.name);
  return names.empty() ? "none" : Join(names, ", ");
}

}  // namespace zor::messages
