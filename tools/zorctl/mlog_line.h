// Lines of the developers' log, and when they were written.
#ifndef ZORCTL_MLOG_LINE_H
#define ZORCTL_MLOG_LINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zor::ctl {

// "[pid=4127 uid=1000][00000012345][web][INFO]:started" in its parts. The first is the kernel's word; all others are
// what the sender wrote.
struct MlogLine {
  std::string pid;  // digits or "?"; empty without that part
  std::string uid;
  std::optional<int64_t> bootMs;  // no value, as the rest, for a line that is made differently
  std::string tag;
  std::string level;
  std::string text;
  bool earlier = false;  // written before the machine last started
};

MlogLine ParseMlogLine(std::string_view line);

// Marks those that were written before the machine started. The clock in the lines begins anew then; a line in
// between that is older or of the future shows nothing, as each sender writes its own time.
void MarkEarlier(std::vector<MlogLine> &lines, int64_t nowBootMs);

// Higher is worse; 0 for an unknown level.
int SeverityOf(std::string_view level);
// As the system's log numbers them.
int PriorityOf(std::string_view level);

// The clocks now, which make a time of the line's.
struct MlogClock {
  int64_t bootMs = 0;
  int64_t wallMs = 0;  // since 1970

  static MlogClock Now();
  std::optional<int64_t> WallMsOf(const MlogLine &line) const;
};

// "2026-11-22 09:30:00.123", local time.
std::string MillisecondsText(int64_t wallMs);

// A time that a user writes: "90s", "10m", "2h", "1d" ago, "09:30", "2026-11-22" or "2026-11-22 09:30:00", local time.
// Milliseconds since 1970; no value for anything else.
std::optional<int64_t> ParseSince(const std::string &text, int64_t nowWallMs);

}  // namespace zor::ctl

#endif
