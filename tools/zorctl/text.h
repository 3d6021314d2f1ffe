// Text for people: what comes from the bus is hostile, and terminals are narrow.
#ifndef ZORCTL_TEXT_H
#define ZORCTL_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zor::ctl {

// The text with control characters, characters that change the direction of writing and what is not UTF-8 written as
// \xNN, and a backslash doubled, so that it stays in its line and place.
std::string Escape(std::string_view text);

// How many columns an escaped text takes on a terminal.
size_t Width(std::string_view text);

// The text, cut to that many columns, with an ellipsis for what was left out.
std::string Cut(std::string_view text, size_t columns);

// A number as message types are written: 0x4001.
std::string HexText(uint32_t number);

// The text up to the first NUL: what a field of fixed size holds.
std::string_view FieldText(const char *field, size_t size);

}  // namespace zor::ctl

#endif
