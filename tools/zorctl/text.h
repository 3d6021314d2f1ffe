// Text for users: data from the bus is hostile, and terminals are narrow.
#ifndef ZORCTL_TEXT_H
#define ZORCTL_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zor::ctl {

// The text with control characters, characters that change the direction of writing and invalid UTF-8 written as \xNN,
// and backslashes doubled, so that it stays in its line and column.
std::string Escape(std::string_view text);

// The same for text of several lines for programs: line ends, tabs and backslashes are kept.
std::string EscapeLines(std::string_view text);

// Whether the text is UTF-8 and Escape would change nothing but backslashes.
bool IsPrintable(std::string_view text);

// The text with U+FFFD for every byte that is not UTF-8.
std::string ToUtf8(std::string_view text);

// JSON, which must be UTF-8, with the characters that Escape changes written as \uNNNN.
std::string EscapeJson(std::string_view json);

// How many columns escaped text takes on a terminal.
size_t Width(std::string_view text);

// The text, truncated to that many columns, with an ellipsis for the rest.
std::string Cut(std::string_view text, size_t columns);

// The text, padded with blanks to that many columns; longer ones stay as they are.
std::string PadRight(std::string_view text, size_t columns);
std::string PadLeft(std::string_view text, size_t columns);

// The texts, with the separator between them.
std::string Join(const std::vector<std::string> &texts, std::string_view separator);

// The text up to the first NUL: the content of a field of fixed size.
std::string_view FieldText(const char *field, size_t size);

}  // namespace zor::ctl

#endif
