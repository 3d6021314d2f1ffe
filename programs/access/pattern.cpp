#include "programs/access/pattern.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace zor::access {
namespace {

constexpr std::size_t kEscape = 4;  // "\xNN"

std::optional<char> ParseEscape(std::string_view text) {
  unsigned char value = 0;
  if (text.size() < kEscape || !text.starts_with("\\x")) return std::nullopt;
  const auto [end, error] = std::from_chars(text.data() + 2, text.data() + kEscape, value, 16);
  if (error != std::errc() || end != text.data() + kEscape || value == 0) return std::nullopt;
  return static_cast<char>(value);
}

bool IsPlain(char c) {
  return c > ' ' && c < '\x7f' && c != ',' && c != '*' && c != '\\';
}

}  // namespace

// What stands before the first wild character is certain; the rest may be anything. Whoever gets a path also gets what
// is below it.
bool Pattern::Overlaps(std::string_view paths) const {
  const std::size_t wild = paths.find_first_of("*?");
  const std::string_view certain = paths.substr(0, wild);
  if (Matches(certain) || certain.starts_with(text + '/')) return true;
  return text.starts_with(wild == std::string_view::npos ? std::string(paths) + '/' : certain);
}

std::optional<Pattern> ParsePattern(std::string_view word) {
  Pattern pattern;
  if (word.ends_with('*')) {
    pattern.isPrefix = true;
    word.remove_suffix(1);
  } else if (word.empty()) {
    return std::nullopt;
  }
  while (!word.empty()) {
    const std::optional<char> escaped = ParseEscape(word);
    if (!escaped && !IsPlain(word.front())) return std::nullopt;
    pattern.text += escaped.value_or(word.front());
    word.remove_prefix(escaped ? kEscape : 1);
  }
  return pattern;
}

std::string EscapeWord(std::string_view text) {
  std::string word;
  for (const char c : text) {
    char escaped[kEscape + 1] = {c};
    if (!IsPlain(c)) std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
    word += escaped;
  }
  return word;
}

}  // namespace zor::access
