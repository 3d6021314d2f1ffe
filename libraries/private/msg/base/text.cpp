#include "base/text.h"

#include <algorithm>
#include <cstring>

namespace zor {
namespace {

void Store(NameField &field, std::string_view text) {
  const std::size_t length = std::min(text.size(), sizeof(NameField) - 1);
  NameField whole = {};
  std::memcpy(whole, text.data(), length);
  std::memcpy(field, whole, sizeof whole);
}

}  // namespace

std::string_view NameView(const NameField &field) noexcept {
  return {field, strnlen(field, sizeof(NameField))};
}

void SetName(NameField &field, const char *text) noexcept {
  if (text == nullptr) text = "";
  Store(field, std::string_view(text, strnlen(text, sizeof(NameField))));
}

void CopyName(NameField &field, const NameField &from) noexcept {
  Store(field, NameView(from));
}

}  // namespace zor
