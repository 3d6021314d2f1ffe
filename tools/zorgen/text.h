// Texts of type files in source code: as literals, and in comments, which they must not be able to leave.
#ifndef ZORGEN_TEXT_H
#define ZORGEN_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "programs/types/type.h"

namespace zor::zorgen {

// A string literal of C and C++, in ASCII.
std::string CLiteral(std::string_view text);

// A string literal of Python, in ASCII; the text is UTF-8.
std::string PythonLiteral(std::string_view text);

// The same for bytes.
std::string PythonBytes(std::string_view bytes);

// The text on one line of printable characters that ends no comment.
std::string CommentText(std::string_view text);

// What a type or a field is, for a comment: "The state now. Request to thermo, since 1.0."
std::string About(const types::Type &type);
std::string About(const types::Field &field);  // may be empty

std::string Hex(uint32_t number);

}  // namespace zor::zorgen

#endif
