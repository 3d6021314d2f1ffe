// Numbers on the command line: decimal, or hexadecimal with 0x.
#ifndef ZORCTL_NUMBER_H
#define ZORCTL_NUMBER_H

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zor::ctl {

// None for anything but one number of at most 32 bits.
inline std::optional<uint32_t> ParseNumber(std::string_view text) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  if (isHex) text.remove_prefix(2);
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, isHex ? 16 : 10);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace zor::ctl

#endif
