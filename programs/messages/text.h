// Text for users and programs: data from the bus is hostile.
#ifndef PROGRAMS_MESSAGES_TEXT_H
#define PROGRAMS_MESSAGES_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zor::messages {

// The text with control characters, characters that change the direction of writing and invalid UTF-8 written as \xNN,
// and backslashes doubled, so that it stays in its line and column.
std::string Escape(std::string_view text);

// The same for text of several lines for programs: line ends, tabs and backslashes are kept.
std::string EscapeLines(std::string_view text);

// Whether the text is UTF-8 and Escape would change nothing but backslashes.
bool IsPrintable(std::string_view text);

// The text with U+FFFD for every byte that is not UTF-8.
std::string ToUtf8(std::string_view text);

// The longest start of the text of at most that many bytes that does not end within a character.
std::string_view CutText(std::string_view text, size_t bytes);

// JSON, which must be UTF-8, with the characters that Escape changes written as \uNNNN.
std::string EscapeJson(std::string_view json);

// The texts, with the separator between them.
std::string Join(const std::vector<std::string> &texts, std::string_view separator);

// The text up to the first NUL: the content of a field of fixed size.
std::string_view FieldText(const char *field, size_t size);

}  // namespace zor::messages

#endif
