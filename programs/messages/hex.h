// Bytes as hexadecimal digits.
#ifndef PROGRAMS_MESSAGES_HEX_H
#define PROGRAMS_MESSAGES_HEX_H

#include <string>
#include <string_view>

namespace zor::messages {

std::string ToHex(std::string_view bytes);

// The bytes that hexadecimal digits represent; blanks between them are ignored. Invalid for anything else.
std::string ParseHex(std::string_view digits);

// 16 bytes a line, with their offset and their characters.
std::string HexDump(std::string_view bytes);

}  // namespace zor::messages

#endif
