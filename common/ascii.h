// Names compared without regard to the case of their ASCII letters. The C library's own comparison follows the locale:
// in a Turkish one "sip" is not "SIP".
#ifndef COMMON_ASCII_H
#define COMMON_ASCII_H

#include <algorithm>
#include <string_view>

namespace zor {

constexpr char AsciiUpper(char c) noexcept {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

constexpr bool EqualIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char left, char right) { return AsciiUpper(left) == AsciiUpper(right); });
}

constexpr bool StartsWithIgnoringCase(std::string_view text, std::string_view start) noexcept {
  return EqualIgnoringCase(text.substr(0, start.size()), start);
}

}  // namespace zor

#endif
