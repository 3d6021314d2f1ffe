// Patterns of names: * stands for any characters, ? for one.
#ifndef ZORCTL_PATTERN_H
#define ZORCTL_PATTERN_H

#include <string_view>

namespace zor::ctl {

bool IsPattern(std::string_view text);
bool Matches(std::string_view pattern, std::string_view text);

}  // namespace zor::ctl

#endif
