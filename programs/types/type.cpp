#include "programs/types/type.h"

#include <charconv>

namespace zor::types {
namespace {

struct KindRow {
  std::string_view name;
  FieldKind kind;
  size_t size;
  bool takesSize;
};

constexpr KindRow kKinds[] = {
    {"u8", FieldKind::kUnsigned, 1, false},  {"u16", FieldKind::kUnsigned, 2, false},
    {"u32", FieldKind::kUnsigned, 4, false}, {"u64", FieldKind::kUnsigned, 8, false},
    {"i8", FieldKind::kSigned, 1, false},    {"i16", FieldKind::kSigned, 2, false},
    {"i32", FieldKind::kSigned, 4, false},   {"i64", FieldKind::kSigned, 8, false},
    {"f64", FieldKind::kReal, 8, false},     {"bool", FieldKind::kBool, 1, false},
    {"name", FieldKind::kText, 12, false},   {"text", FieldKind::kText, 0, true},
    {"bytes", FieldKind::kBytes, 0, true},   {"items", FieldKind::kItems, 0, false},
    {"json", FieldKind::kJson, 0, false},
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
