#include "zorctl/top_table.h"

#include <algorithm>
#include <array>

#include "zorctl/format.h"
#include "zorctl/quantity.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

struct Column {
  const char *title;
  size_t width;    // the least of the last one, which takes what is left
  int importance;  // 0 comes first
  std::string (*text)(const TopRow &row);
};

std::string WaitingText(const TopRow &row) {
  const daemon::Daemon &daemon = row.client->daemon;
  return (daemon.unreadAtLeast ? ">" : "") + CountText(daemon.unread);
}

std::string OldestText(const TopRow &row) {
  const daemon::Daemon &daemon = row.client->daemon;
  return daemon.unread == 0 ? "-" : LongAgeText(Milliseconds(daemon.unreadMs));
}

std::string PidText(const TopRow &row) {
  const int pid = row.client->daemon.pid;
  return pid == 0 ? "-" : std::to_string(pid);
}

std::string MemoryText(const TopRow &row) {
  const uint64_t bytes = row.client->process.residentBytes;
  return bytes == 0 ? "-" : BytesText(static_cast<double>(bytes));
}

// In the order of the screen.
constexpr std::array kColumns = {
    Column{"NAME", 11, 0, [](const TopRow &row) { return Cut(Escape(row.name()), 11); }},
    Column{"PID", 7, 9, PidText},
    Column{"MSG/S", 7, 0, [](const TopRow &row) { return RateText(row.Messages()); }},
    Column{"SENT/S", 7, 6, [](const TopRow &row) { return RateText(row.rates->sent); }},
    Column{"RECV/S", 7, 6, [](const TopRow &row) { return RateText(row.rates->received); }},
    Column{"BYTES/S", 7, 3, [](const TopRow &row) { return BytesText(row.Bytes()); }},
    Column{"WAITING", 7, 1, WaitingText},
    Column{"OLDEST", 6, 1, OldestText},
    Column{"DROPPED", 7, 4, [](const TopRow &row) { return CountText(row.client->traffic.dropped.value_or(0)); }},
    Column{"CPU%", 5, 2, [](const TopRow &row) { return PercentText(row.rates->cpu); }},
    Column{"MEMORY", 6, 7, MemoryText},
    Column{"STATE", 16, 5, StateTextOf},
};
constexpr size_t kState = kColumns.size() - 1;

// Texts are on the left, numbers on the right.
std::string Pad(size_t column, const std::string &text, size_t width) {
  return column == 0 || column == kState ? PadRight(Cut(text, width), width) : PadLeft(Cut(text, width), width);
}

}  // namespace

TopTable::TopTable(size_t columns) {
  std::vector<size_t> order;
  for (size_t i = 0; i < kColumns.size(); ++i) order.push_back(i);
  std::stable_sort(order.begin(), order.end(),
                   [](size_t a, size_t b) { return kColumns[a].importance < kColumns[b].importance; });
  size_t used = 0;
  for (const size_t column : order) {
    const size_t wanted = kColumns[column].width + (used == 0 ? 0 : 1);
    if (used != 0 && used + wanted > columns) break;
    used += wanted;
    shown_.push_back(column);
  }
  std::sort(shown_.begin(), shown_.end());
  constexpr size_t kMostState = 40;
  stateWidth_ = std::min(kColumns[kState].width + columns - std::min(columns, used), kMostState);
}

std::string TopTable::Title() const {
  std::string line;
  for (const size_t column : shown_) {
    const size_t width = column == kState ? stateWidth_ : kColumns[column].width;
    line += (line.empty() ? "" : " ") + Pad(column, kColumns[column].title, width);
  }
  return line;
}

std::string TopTable::RowText(const TopRow &row) const {
  std::string line;
  for (const size_t column : shown_) {
    const size_t width = column == kState ? stateWidth_ : kColumns[column].width;
    line += (line.empty() ? "" : " ") + Pad(column, kColumns[column].text(row), width);
  }
  return line;
}

}  // namespace zor::ctl
