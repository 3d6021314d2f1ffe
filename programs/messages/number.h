// Numbers of 32 bits on the command line: decimal, or hexadecimal with 0x.
#ifndef PROGRAMS_MESSAGES_NUMBER_H
#define PROGRAMS_MESSAGES_NUMBER_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace zor::messages {

// No value for anything but such a number.
std::optional<uint32_t> ParseUint32(std::string_view text);

// The same, but throws Invalid; `what` names the number in its text.
uint32_t RequireUint32(std::string_view text, std::string_view what);

}  // namespace zor::messages

#endif
