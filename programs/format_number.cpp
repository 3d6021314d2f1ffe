#include "programs/format_number.h"

#include <array>
#include <cstdio>

namespace zor::daemon {

std::string AgeText(uint64_t milliseconds) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f s", static_cast<double>(milliseconds) / 1000);
  return text.data();
}

std::string HexText(uint32_t number) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%X", number);
  return text.data();
}

}  // namespace zor::daemon
