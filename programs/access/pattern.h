// A text in a rule: a whole one, or with "*" at its end the start of others.
#ifndef PROGRAMS_ACCESS_PATTERN_H
#define PROGRAMS_ACCESS_PATTERN_H

#include <optional>
#include <string>
#include <string_view>

namespace zor::access {

struct Pattern {
  std::string text;
  bool isPrefix = false;

  bool Matches(std::string_view other) const { return isPrefix ? other.starts_with(text) : other == text; }
  // Whether it matches something that a pattern of restful paths, with its own '*' and '?', matches too.
  bool Overlaps(std::string_view paths) const;
};

// Reads what a rule contains; "\xNN" is the character of that number, for blanks, commas, '*' and '\'. No value when
// it is malformed.
std::optional<Pattern> ParsePattern(std::string_view word);

// Any text, written so that ParsePattern gives that text alone.
std::string EscapeWord(std::string_view text);

}  // namespace zor::access

#endif
