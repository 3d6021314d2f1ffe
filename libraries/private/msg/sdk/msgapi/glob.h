// Path patterns: "?" is any one character, "*" a run without "/", "**" any run; either run may be empty.
#ifndef SDK_MSGAPI_GLOB_H
#define SDK_MSGAPI_GLOB_H

#include <string_view>

namespace zor {

// Whether the pattern matches the whole path. False also when there is no memory for the match.
bool GlobMatches(std::string_view pattern, std::string_view path) noexcept;

}  // namespace zor

#endif
