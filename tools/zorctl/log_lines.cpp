#include "zorctl/log_lines.h"

#include <algorithm>

namespace zor::ctl {
namespace {

// Removes a bracketed text from the front of the rest and returns it.
std::optional<std::string> TakeBracketed(std::string_view &rest) {
  const size_t end = rest.find(']');
  if (!rest.starts_with('[') || end == rest.npos) return std::nullopt;
  std::string inside(rest.substr(1, end - 1));
  rest.remove_prefix(end + 1);
  return inside;
}

}  // namespace

Lines SplitLines(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::optional<LogLine> ParseLogLine(std::string_view line) {
  constexpr size_t kTimeLength = sizeof "2026-11-21 09:30:00" - 1;
  if (line.size() <= kTimeLength || line[kTimeLength] != ' ') return std::nullopt;
  std::string_view rest = line.substr(kTimeLength + 1);
  const auto type = TakeBracketed(rest);
  const auto level = type ? TakeBracketed(rest) : std::nullopt;
  if (!level || !rest.starts_with(' ')) return std::nullopt;
  return LogLine{std::string(line.substr(0, kTimeLength)), *type, *level, std::string(rest.substr(1))};
}

size_t CountSeen(const Lines &before, const Lines &now) {
  size_t seen = 0;
  for (const std::string &old : before) {
    if (seen < now.size() && now[seen] == old) ++seen;
  }
  return seen;
}

}  // namespace zor::ctl
