#include "zorctl/pattern.h"

#include <cstddef>

namespace zor::ctl {

bool IsPattern(std::string_view text) {
  return text.find_first_of("*?") != text.npos;
}

// When a character does not fit, the latest * takes one more: earlier ones need not be tried again.
bool Matches(std::string_view pattern, std::string_view text) {
  size_t at = 0, place = 0, star = pattern.npos, taken = 0;
  while (place < text.size()) {
    if (at < pattern.size() && pattern[at] == '*') {
      star = at++;
      taken = place;
    } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == text[place])) {
      ++at;
      ++place;
    } else if (star != pattern.npos) {
      at = star + 1;
      place = ++taken;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', at) == pattern.npos;
}

}  // namespace zor::ctl
