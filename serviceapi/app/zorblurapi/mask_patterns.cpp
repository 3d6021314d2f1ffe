#include "app/zorblurapi/mask_patterns.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace zor {
namespace {

using CharacterSet = std::array<bool, 256>;

constexpr CharacterSet SetOf(std::string_view characters) {
  CharacterSet set = {};
  for (const char c : characters) set[static_cast<unsigned char>(c)] = true;
  return set;
}

// No set holds the zero byte, so that nothing behind the end of a text is read.
constexpr CharacterSet kDigit = SetOf("0123456789");
constexpr CharacterSet kHexDigit = SetOf("0123456789abcdefABCDEF");
constexpr CharacterSet kMacSeparator = SetOf(":-");

bool Contains(const CharacterSet &set, char c) {
  return set[static_cast<unsigned char>(c)];
}

// How many characters of the set the text begins with, at most max.
std::size_t Run(const CharacterSet &set, const char *text, std::size_t max) {
  std::size_t length = 0;
  while (length < max && Contains(set, text[length])) ++length;
  return length;
}

// Shapes have a fixed length: 'x' is a hexadecimal digit, ':' a separator of MAC addresses.
constexpr std::string_view kMacShape = "xx:xx:xx:xx:xx:xx";
constexpr std::string_view kUuidShape = "xxxx-xxxx-xxxx-xxxxxxxxxxxx";

bool Fits(char shape, char c) {
  if (shape == 'x') return Contains(kHexDigit, c);
  return shape == ':' ? Contains(kMacSeparator, c) : shape == c;
}

std::size_t MatchShape(std::string_view shape, const char *text) {
  const bool matches = std::all_of(shape.begin(), shape.end(), [&text](char each) { return Fits(each, *text++); });
  return matches ? shape.size() : 0;
}

}  // namespace

std::size_t MatchMac(const char *text) noexcept {
  return MatchShape(kMacShape, text);
}

std::size_t MatchUuid(const char *text) noexcept {
  return MatchShape(kUuidShape, text);
}

std::size_t MatchIpv4(const char *text) noexcept {
  const char *at = text;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0 && *at++ != '.') return 0;
    const std::size_t digits = Run(kDigit, at, 3);
    if (digits == 0) return 0;
    at += digits;
  }
  return static_cast<std::size_t>(at - text);
}

// Only one way leads on from each group: a ':' behind it needs the whole group, and a '.' makes it an IPv4 suffix. What
// is kept on the way is the end of the longest form so far.
std::size_t MatchIpv6(const char *text) noexcept {
  constexpr int kWhole = 8;
  const char *at = text;
  const char *end = text;
  int groups = 0;
  bool compressed = false;
  if (at[0] == ':' && at[1] == ':') {
    compressed = true;
    end = at += 2;
  }
  for (;;) {
    const int left = (compressed ? kWhole - 1 : kWhole) - groups;
    const bool suffixFits = compressed ? left >= 2 : left == 2;
    if (const std::size_t suffix = suffixFits ? MatchIpv4(at) : 0; suffix != 0) {
      end = at + suffix;
      break;
    }
    const std::size_t group = left == 0 ? 0 : Run(kHexDigit, at, 4);
    if (group == 0) break;
    at += group;
    ++groups;
    if (compressed || groups == kWhole) end = at;
    if (groups == kWhole || *at != ':') break;
    ++at;
    if (!compressed && *at == ':') {
      compressed = true;
      end = ++at;
    }
  }
  return static_cast<std::size_t>(end - text);
}

}  // namespace zor
