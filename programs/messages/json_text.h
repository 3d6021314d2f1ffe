// JSON in texts of other programs: read with bounds, written as one line.
#ifndef PROGRAMS_MESSAGES_JSON_TEXT_H
#define PROGRAMS_MESSAGES_JSON_TEXT_H

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace zor::messages {

// What is beyond these bounds is not JSON for us.
//
// Writing a value takes stack space for each level.
inline constexpr std::size_t kMaxJsonDepth = 100;
// Of one object: its members are searched for each new one.
inline constexpr std::size_t kMaxJsonMembers = 4096;

// The value of a text, members in their order; discarded if it is not JSON, not UTF-8, or beyond the bounds.
nlohmann::ordered_json ParseJson(std::string_view text);

// One line of compact JSON. In strings U+FFFD replaces what is not UTF-8.
std::string JsonText(const nlohmann::ordered_json &value);
// The text of a string, quotes included.
std::string JsonString(std::string_view text);

// The members of an object, without its braces: for an object that has others in front.
std::string JsonMembers(const nlohmann::ordered_json &object);

}  // namespace zor::messages

#endif
