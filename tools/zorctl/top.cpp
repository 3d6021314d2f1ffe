#include "zorctl/top.h"

#include <algorithm>
#include <array>

#include "zorctl/text.h"
#include "zorctl/top_detail.h"
#include "zorctl/top_summary.h"
#include "zorctl/top_table.h"

namespace zor::ctl {
namespace {

constexpr size_t kPage = 10;

constexpr std::array kHelp = {
    "up, down, page up, page down, home, end: select a daemon",
    "Enter: its peers and message types, requests and subscriptions",
    "Esc: back",
    "/: show only daemons whose names contain what you type; Esc ends it",
    "sort by: r rate, b bytes, w waiting, o oldest, d dropped, c cpu, m memory, n name",
    "q: quit",
    "",
    "MSG/S    messages that the daemon sends and receives in a second",
    "WAITING  messages that it has not read; OLDEST: the age of the first",
    "DROPPED  messages that were refused because its queue was full, or lost with a connection",
    "CPU%     of one processor",
    "storm    two daemons that send each other more messages a second than storm_rate",
};

// At most as many lines as fit, each truncated.
Screen Fit(const Screen &screen, const Size &size) {
  Screen fitting;
  for (const Line &line : screen) {
    if (fitting.size() < size.rows) fitting.push_back(CutLine(line, size.columns));
  }
  return fitting;
}

const char *NameOfSort(SortKey key) {
  for (const SortKeyRow &row : SortKeys()) {
    if (row.key == key) return row.name;
  }
  return "";
}

Style StyleOf(const TopRow &row) {
  if (busview::IsStopped(*row.client) || (row.wait != nullptr && row.wait->inCycle)) return Style::kAlarm;
  return row.wait != nullptr || row.client->daemon.unreadMs > 1000 ? Style::kWarning : Style::kPlain;
}

}  // namespace

void Top::Show(TopData data) {
  data_ = std::move(data);
  trouble_.clear();
}

Top::Identity Top::IdentityOf(const TopRow &row) {
  return {row.name(), row.client->board, row.client->daemon.pid, row.client->since, row.twin};
}

size_t Top::SelectedIn(const std::vector<TopRow> &rows) const {
  const auto found =
      std::find_if(rows.begin(), rows.end(), [&](const TopRow &row) { return IdentityOf(row) == selected_; });
  return found == rows.end() ? 0 : static_cast<size_t>(found - rows.begin());
}

// The first place is a place and not a daemon, so that the fastest stays selected.
void Top::Select(const std::vector<TopRow> &rows, size_t index) {
  selected_ = index == 0 || index >= rows.size() ? std::nullopt : std::optional(IdentityOf(rows[index]));
}

void Top::Take(const Press &press) {
  switch (mode_) {
    case Mode::kList:
      return TakeInList(press);
    case Mode::kFilter:
      return TakeInFilter(press);
    case Mode::kDetail:
      return TakeInDetail(press);
    case Mode::kHelp:
      if (press.character == 'q') finished_ = true;
      mode_ = Mode::kList;
  }
}

bool Top::Move(const Press &press) {
  const std::vector<TopRow> rows = Rows();
  const size_t last = rows.empty() ? 0 : rows.size() - 1;
  const size_t at = SelectedIn(rows);
  switch (press.key) {
    case Key::kUp:
      Select(rows, at - std::min<size_t>(at, 1));
      return true;
    case Key::kDown:
      Select(rows, std::min(at + 1, last));
      return true;
    case Key::kPageUp:
      Select(rows, at - std::min(at, kPage));
      return true;
    case Key::kPageDown:
      Select(rows, std::min(at + kPage, last));
      return true;
    case Key::kHome:
      Select(rows, 0);
      return true;
    case Key::kEnd:
      Select(rows, last);
      return true;
    default:
      return false;
  }
}

void Top::TakeInList(const Press &press) {
  if (Move(press)) return;
  if (press.key == Key::kEscape) filter_.clear();
  if (press.key == Key::kCharacter) TakeCharacter(press.character);
  if (press.key != Key::kEnter) return;
  const std::vector<TopRow> rows = Rows();
  if (rows.empty()) return;
  selected_ = IdentityOf(rows[SelectedIn(rows)]);
  scrolled_ = 0;
  mode_ = Mode::kDetail;
}

void Top::TakeCharacter(char character) {
  if (character == 'q') finished_ = true;
  if (character == '?') mode_ = Mode::kHelp;
  if (character == '/') mode_ = Mode::kFilter;
  for (const SortKeyRow &row : SortKeys()) {
    if (row.letter == character) sort_ = row.key;
  }
}

void Top::TakeInFilter(const Press &press) {
  if (Move(press)) return;
  if (press.key == Key::kCharacter) filter_ += press.character;
  if (press.key == Key::kBackspace && !filter_.empty()) filter_.pop_back();
  if (press.key == Key::kEscape) filter_.clear();
  if (press.key == Key::kEscape || press.key == Key::kEnter) mode_ = Mode::kList;
}

void Top::TakeInDetail(const Press &press) {
  if (press.key == Key::kCharacter && press.character == 'q') finished_ = true;
  if (press.key == Key::kCharacter && press.character == '?') mode_ = Mode::kHelp;
  if (press.key == Key::kEscape || press.key == Key::kBackspace) mode_ = Mode::kList;
  if (press.key == Key::kUp && scrolled_ > 0) --scrolled_;
  if (press.key == Key::kDown) ++scrolled_;
  if (press.key == Key::kPageUp) scrolled_ -= std::min(scrolled_, kPage);
  if (press.key == Key::kPageDown) scrolled_ += kPage;
  if (press.key == Key::kHome) scrolled_ = 0;
}

Screen Top::Draw(const Size &size) {
  if (mode_ == Mode::kHelp) {
    Screen screen = {{{"zorctl top: keys; any of them returns", Style::kTitle}}};
    for (const char *line : kHelp) screen.push_back({{line}});
    return Fit(screen, size);
  }
  if (data_.empty()) return Fit({{{trouble_.empty() ? "asking the message server" : trouble_}}}, size);
  return mode_ == Mode::kDetail ? DrawDetail(size) : DrawList(size);
}

std::string Top::Footer(size_t columns) const {
  if (mode_ == Mode::kFilter) return "/" + Escape(filter_) + "_";
  const std::string filter = filter_.empty() ? "/ filter" : "/" + Escape(filter_);
  const std::string keys =
      mode_ == Mode::kDetail
          ? JoinFitting({"Esc back", "q quit", "? help"}, "  ", columns)
          : JoinFitting({"? help", "q quit", filter, std::string("by ") + NameOfSort(sort_)}, "  ", columns);
  // An ordinary terminal has no room for all of it.
  const std::string full = keys + "  " + data_.cost.Text();
  return Width(full) <= columns ? full : JoinFitting({keys, data_.cost.ShortText()}, "  ", columns);
}

Screen Top::DrawList(const Size &size) const {
  Screen screen = SummaryOf(data_, size.columns);
  if (!trouble_.empty()) screen.insert(screen.begin(), Line{{trouble_, Style::kAlarm}});
  // However much is wrong, half of the screen is for the table.
  screen.resize(std::min(screen.size(), std::max<size_t>(size.rows / 2, 1)));
  const TopTable table(size.columns);
  screen.push_back({{table.Title(), Style::kTitle}});
  const std::vector<TopRow> rows = Rows();
  const size_t room = size.rows - std::min(size.rows, screen.size() + 1), selected = SelectedIn(rows);
  const size_t first = rows.size() <= room ? 0 : std::min(selected - std::min(selected, room / 2), rows.size() - room);
  for (size_t i = first; i < std::min(rows.size(), first + room); ++i) {
    screen.push_back({{table.RowText(rows[i]), i == selected ? Style::kSelected : StyleOf(rows[i])}});
  }
  while (screen.size() + 1 < size.rows) screen.emplace_back();
  screen.push_back({{Footer(size.columns), mode_ == Mode::kFilter ? Style::kBold : Style::kDim}});
  return Fit(screen, size);
}

Screen Top::DrawDetail(const Size &size) {
  const std::vector<TopRow> rows = RowsOf(data_, sort_, "");
  const auto row =
      std::find_if(rows.begin(), rows.end(), [&](const TopRow &each) { return IdentityOf(each) == selected_; });
  Screen screen;
  if (!trouble_.empty()) screen.push_back({{trouble_, Style::kAlarm}});
  if (row == rows.end()) {
    screen.push_back({{Escape(selected_ ? selected_->name : "") + " has left the bus", Style::kAlarm}});
  } else {
    const Screen detail = DetailOf(data_, *row);
    const size_t room = std::max<size_t>(size.rows - std::min(size.rows, screen.size() + 1), 1);
    scrolled_ = std::min(scrolled_, detail.size() - std::min(detail.size(), room));
    screen.insert(screen.end(), detail.begin() + static_cast<std::ptrdiff_t>(scrolled_), detail.end());
  }
  screen.resize(std::max<size_t>(size.rows, 1) - 1);
  screen.push_back({{Footer(size.columns), Style::kDim}});
  return Fit(screen, size);
}

}  // namespace zor::ctl
