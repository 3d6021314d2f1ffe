// Numbers on the command line: decimal, or hexadecimal with 0x.
#ifndef ZORCTL_NUMBER_H
#define ZORCTL_NUMBER_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "programs/settings.h"

namespace zor::ctl {

// None for anything but one number of at most 32 bits.
inline std::optional<uint32_t> ParseNumber(std::string_view text) {
  uint64_t number = 0;
  if (!daemon::ParseNumber(text, &number) || number > UINT32_MAX) return std::nullopt;
  return static_cast<uint32_t>(number);
}

}  // namespace zor::ctl

#endif
