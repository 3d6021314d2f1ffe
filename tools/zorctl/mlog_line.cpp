#include "zorctl/mlog_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <utility>

#include "zorctl/format.h"

namespace zor::ctl {
namespace {

struct Level {
  std::string_view name;
  int severity;
  int priority;
};
constexpr std::array kLevels = {Level{"FATL", 4, 2}, Level{"ERRO", 3, 3}, Level{"WARN", 2, 4}, Level{"INFO", 1, 6}};
constexpr int kDebugPriority = 7;

const Level *FindLevel(std::string_view name) {
  for (const Level &level : kLevels) {
    if (level.name == name) return &level;
  }
  return nullptr;
}

// Removes "[...]" from the front of the rest and returns what is inside.
std::optional<std::string_view> TakeBracketed(std::string_view &rest) {
  const size_t end = rest.find(']');
  if (!rest.starts_with('[') || end == rest.npos) return std::nullopt;
  const std::string_view inside = rest.substr(1, end - 1);
  rest.remove_prefix(end + 1);
  return inside;
}

std::optional<int64_t> NumberOf(std::string_view text) {
  int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || number < 0) return std::nullopt;
  return number;
}

int64_t MsOf(clockid_t clock) {
  timespec now = {};
  ::clock_gettime(clock, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

void TakeSender(std::string_view &rest, MlogLine &line) {
  constexpr std::string_view kPid = "pid=", kUid = " uid=";
  std::string_view after = rest;
  const auto sender = TakeBracketed(after);
  if (!sender || !sender->starts_with(kPid)) return;
  const size_t space = sender->find(kUid);
  if (space == sender->npos) return;
  line.pid = sender->substr(kPid.size(), space - kPid.size());
  line.uid = sender->substr(space + kUid.size());
  rest = after;
}

std::optional<int64_t> ParseAgo(const std::string &text) {
  struct Unit {
    char letter;
    int64_t ms;
  };
  constexpr std::array kUnits = {Unit{'s', 1000}, Unit{'m', 60'000}, Unit{'h', 3'600'000}, Unit{'d', 86'400'000}};
  constexpr int64_t kMost = 100'000'000;
  if (text.empty()) return std::nullopt;
  const auto number = NumberOf(text.substr(0, text.size() - 1));
  if (!number || *number > kMost) return std::nullopt;
  for (const Unit &unit : kUnits) {
    if (unit.letter == text.back()) return *number * unit.ms;
  }
  return std::nullopt;
}

}  // namespace

MlogLine ParseMlogLine(std::string_view text) {
  MlogLine line;
  TakeSender(text, line);
  std::string_view rest = text;
  const auto time = TakeBracketed(rest);
  const auto ms = time ? NumberOf(*time) : std::nullopt;
  const auto tag = ms ? TakeBracketed(rest) : std::nullopt;
  const auto level = tag ? TakeBracketed(rest) : std::nullopt;
  if (!level || !rest.starts_with(':')) {
    line.text = text;
    return line;
  }
  line.bootMs = *ms;
  line.tag = *tag;
  line.level = *level;
  line.text = rest.substr(1);
  return line;
}

void MarkEarlier(std::vector<MlogLine> &lines, int64_t nowBootMs) {
  constexpr int64_t kSlackMs = 60'000;
  // A process whose clock is wrong is no restart; that many of its lines in a row are.
  constexpr int kOfOneProcess = 10;
  // From the newest on: the two times that follow the line, and the lines since then that are later than both.
  int64_t next = nowBootMs, afterNext = nowBootMs;
  auto first = lines.rend();
  int later = 0;
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    if (!line->bootMs) continue;
    if (*line->bootMs <= std::max(next, afterNext) + kSlackMs) {
      afterNext = std::exchange(next, *line->bootMs);
      first = lines.rend();
      later = 0;
      continue;
    }
    if (first == lines.rend()) first = line;
    if (line->pid != first->pid || ++later == kOfOneProcess) break;
  }
  for (auto line = first; line != lines.rend(); ++line) line->earlier = true;
}

int SeverityOf(std::string_view level) {
  const Level *found = FindLevel(level);
  return found == nullptr ? 0 : found->severity;
}

int PriorityOf(std::string_view level) {
  const Level *found = FindLevel(level);
  return found == nullptr ? kDebugPriority : found->priority;
}

MlogClock MlogClock::Now() {
  return {MsOf(CLOCK_BOOTTIME), MsOf(CLOCK_REALTIME)};
}

std::optional<int64_t> MlogClock::WallMsOf(const MlogLine &line) const {
  // A time of the future is none.
  if (!line.bootMs || line.earlier || *line.bootMs > bootMs + 60'000) return std::nullopt;
  return wallMs - bootMs + *line.bootMs;
}

std::string MillisecondsText(int64_t wallMs) {
  std::array<char, 8> fraction = {};
  std::snprintf(fraction.data(), fraction.size(), ".%03d", static_cast<int>(wallMs % 1000));
  return LocalTimeText(static_cast<std::time_t>(wallMs / 1000)) + fraction.data();
}

std::optional<int64_t> ParseSince(const std::string &text, int64_t nowWallMs) {
  if (const auto ago = ParseAgo(text)) return nowWallMs - *ago;
  const auto now = static_cast<std::time_t>(nowWallMs / 1000);
  for (const char *format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d", "%H:%M:%S", "%H:%M"}) {
    std::tm parts = {};
    ::localtime_r(&now, &parts);
    parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
    parts.tm_isdst = -1;
    const char *end = ::strptime(text.c_str(), format, &parts);
    if (end == nullptr || *end != '\0') continue;
    const std::time_t time = std::mktime(&parts);
    if (time != -1) return static_cast<int64_t>(time) * 1000;
  }
  return std::nullopt;
}

}  // namespace zor::ctl
