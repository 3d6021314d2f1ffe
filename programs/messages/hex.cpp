#include "programs/messages/hex.h"

#include <array>
#include <cstdio>

#include "programs/messages/invalid.h"
#include "programs/messages/text.h"

namespace zor::messages {
namespace {

int DigitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

}  // namespace

std::string ToHex(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    text.append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
  }
  return text;
}

std::string ParseHex(std::string_view digits) {
  std::string bytes;
  int high = -1;
  for (const char digit : digits) {
    if (digit == ' ' || digit == '\n') continue;
    const int value = DigitValue(digit);
    if (value < 0) throw Invalid("not a hexadecimal digit: " + Escape({&digit, 1}), "write 0A1b or 0A 1b");
    if (high >= 0) bytes.push_back(static_cast<char>(high << 4 | value));
    high = high >= 0 ? -1 : value;
  }
  if (high >= 0) throw Invalid("an odd number of hexadecimal digits", "each byte has two");
  return bytes;
}

std::string HexDump(std::string_view bytes) {
  constexpr size_t kRow = 16;
  std::string dump;
  for (size_t at = 0; at < bytes.size(); at += kRow) {
    const std::string_view row = bytes.substr(at, kRow);
    std::array<char, 24> offset{};
    std::snprintf(offset.data(), offset.size(), "%04zx ", at);
    std::string digits;
    std::string characters;
    for (const char each : row) {
      digits.append(" ").append(ToHex({&each, 1}));
      characters += each >= ' ' && each <= '~' ? each : '.';
    }
    digits.resize(kRow * 3, ' ');
    dump.append(offset.data()).append(digits).append("  ").append(characters).append("\n");
  }
  return dump;
}

}  // namespace zor::messages
