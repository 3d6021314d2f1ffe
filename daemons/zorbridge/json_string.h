// Texts as JSON strings, where a library for JSON would take memory that may be short.
#ifndef ZORBRIDGE_JSON_STRING_H
#define ZORBRIDGE_JSON_STRING_H

#include <string>
#include <string_view>

namespace zor::bridge {

// Appends a text, which must be UTF-8, in quotes.
void AppendJsonString(std::string &json, std::string_view text);

}  // namespace zor::bridge

#endif
