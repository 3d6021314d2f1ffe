// Lines of the user-visible log, as the daemon writes the result of a query.
#ifndef ZORCTL_LOG_LINES_H
#define ZORCTL_LOG_LINES_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zor::ctl {

using Lines = std::vector<std::string>;

Lines SplitLines(std::string_view text);

// "2026-11-21 09:30:00 [User][Notice] User admin logout" in its parts; no value for anything else.
struct LogLine {
  std::string time;
  std::string type;
  std::string level;
  std::string text;
};
std::optional<LogLine> ParseLogLine(std::string_view line);

// How many lines at the front of a result were already in the previous one. Records have no number that distinguishes
// old from new, but the old ones that remain are in their old order, before all new ones, whatever was rotated out or
// cleared in between.
size_t CountSeen(const Lines &before, const Lines &now);

}  // namespace zor::ctl

#endif
