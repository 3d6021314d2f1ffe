// Writes rules that allow what was observed, and nothing else: for each user and unit, or user and executable where the
// unit is not known, what it did. Names and modules that somebody has registered are denied to all others.
#ifndef PROGRAMS_ACCESS_LEARN_H
#define PROGRAMS_ACCESS_LEARN_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/access/accounts.h"

namespace zor::access {

// From lines "seen = COUNT WHO... WHAT"; comments and blank lines are skipped. Mistakes are added as "FILE:LINE: ...";
// no value when there is one.
std::optional<std::string> Learn(std::string_view observations, const std::string &file, const Accounts &accounts,
                                 std::vector<std::string> &mistakes);

}  // namespace zor::access

#endif
