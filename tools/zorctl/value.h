// Values: how they are written on the command line, and how bytes of unknown meaning are printed.
#ifndef ZORCTL_VALUE_H
#define ZORCTL_VALUE_H

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "programs/messages/body.h"
#include "zorctl/options.h"

namespace zor::ctl {

// Words of the form NAME=VALUE. Failure (usage) for any other.
std::pair<std::string, std::string> ParsePair(const std::string &word);
messages::Values ParsePairs(const std::vector<std::string> &words);

// Adds the option --as, the format of values, whose default is the variable's value: "text", "string" (a text with its
// NUL), "hex", "u32" or "file" (the path of a file with the bytes).
void AddFormatOption(Options &options, std::string &format);

// The bytes that a word of the command line represents. Failure (usage) if it is not of that format, or a file is
// larger than limit.
std::string ParseBytes(const std::string &word, std::string_view format, size_t limit);

// Bytes as a line for users: text if they are text, a number if there are four, otherwise hexadecimal.
std::string ShowBytes(std::string_view bytes);
// The same in all forms that apply.
nlohmann::json BytesJson(std::string_view bytes);

}  // namespace zor::ctl

#endif
