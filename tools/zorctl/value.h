// Bytes on the command line and in the output: how a value is written, and how one that nobody described is shown.
#ifndef ZORCTL_VALUE_H
#define ZORCTL_VALUE_H

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zorctl/body.h"

namespace CLI {
class App;
}

namespace zor::ctl {

// A word of the form NAME=VALUE; such words. Failure (usage) for any other.
std::pair<std::string, std::string> ParsePair(const std::string &word);
Values ParsePairs(const std::vector<std::string> &words);

// Adds the option --as, which says how values are written; it starts with what the variable holds: "text", "string" (a
// text with its NUL), "hex", "u32" or "file" (the path of a file that holds the bytes).
void AddFormatOption(CLI::App &app, std::string &format);

// The bytes that a word of the command line stands for. Failure (usage) when it is not of that format, or a file is
// larger than limit.
std::string ParseBytes(const std::string &word, std::string_view format, size_t limit);

// Bytes as a line for people: a text if they are one, a number if they are four, else hexadecimal.
std::string ShowBytes(std::string_view bytes);
// The same in all forms that fit.
nlohmann::json BytesJson(std::string_view bytes);

}  // namespace zor::ctl

#endif
