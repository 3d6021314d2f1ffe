#include "programs/types/type.h"

#include <charconv>

namespace zor::types {
namespace {

struct KindRow {
  std::string_view name;
  size_t size;
  FieldKind kind;
  bool takesSize;
};

constexpr KindRow kKinds[] = {
    {"u8", 1, FieldKind::kUnsigned, false},  {"u16", 2, FieldKind::kUnsigned, false},
    {"u32", 4, FieldKind::kUnsigned, false}, {"u64", 8, FieldKind::kUnsigned, false},
    {"i8", 1, FieldKind::kSigned, false},    {"i16", 2, FieldKind::kSigned, false},
    {"i32", 4, FieldKind::kSigned, false},   {"i64", 8, FieldKind::kSigned, false},
    {"f64", 8, FieldKind::kReal, false},     {"bool", 1, FieldKind::kBool, false},
    {"name", 12, FieldKind::kText, false},   {"text", 0, FieldKind::kText, true},
    {"bytes", 0, FieldKind::kBytes, true},   {"items", 0, FieldKind::kItems, false},
    {"json", 0, FieldKind::kJson, false},
};

// More than any message holds.
constexpr size_t kMaxSize = 1u << 24;

// No size, or a decimal number without zeros in front.
bool ParseSize(std::string_view digits, size_t &size) {
  if (digits.empty()) return true;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), size);
  return error == std::errc() && end == digits.data() + digits.size() && digits[0] != '0' && size <= kMaxSize;
}

}  // namespace

std::string_view KindText(Kind kind) {
  constexpr std::string_view kTexts[] = {"request", "oneway", "event", "notice"};
  return kTexts[static_cast<size_t>(kind)];
}

bool SetFieldType(Field &field, std::string_view text) {
  for (const KindRow &row : kKinds) {
    const bool matches = row.takesSize ? text.starts_with(row.name) : text == row.name;
    size_t size = row.size;
    if (!matches || !ParseSize(text.substr(row.name.size()), size)) continue;
    field.kind = row.kind;
    field.size = size;
    field.typeText = text;
    return true;
  }
  return false;
}

}  // namespace zor::types
