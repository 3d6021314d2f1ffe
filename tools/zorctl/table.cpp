#include "zorctl/table.h"

#include <algorithm>
#include <numeric>

#include "zorctl/output.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

constexpr char kGap[] = "  ";

}  // namespace

void Table::Add(const Row &row) {
  Row &escaped = rows_.emplace_back();
  for (const std::string &cell : row) escaped.push_back(Escape(cell));
  escaped.resize(columns_.size());
}

size_t Table::WidthOf(size_t column) const {
  size_t widest = Width(columns_[column].title);
  for (const Row &row : rows_) widest = std::max(widest, Width(row[column]));
  return widest;
}

std::vector<size_t> Table::Fitting(size_t width) const {
  std::vector<size_t> places(columns_.size());
  std::iota(places.begin(), places.end(), size_t{0});
  const auto all = [&] {
    return std::accumulate(places.begin(), places.end(), size_t{0}, [this](size_t sum, size_t column) {
      return sum + (sum == 0 ? 0 : sizeof kGap - 1) + WidthOf(column);
    });
  };
  const auto less = [this](size_t a, size_t b) { return columns_[a].dispensable < columns_[b].dispensable; };
  while (all() > width) {
    const auto least = std::max_element(places.begin(), places.end(), less);
    if (columns_[*least].dispensable == 0) break;
    places.erase(least);
  }
  return places;
}

std::vector<std::string> Table::Lines(size_t width) const {
  std::vector<std::string> lines(rows_.size() + 1);
  for (const size_t column : Fitting(width)) {
    const size_t widest = WidthOf(column);
    for (size_t i = 0; i < lines.size(); ++i) {
      const std::string &cell = i == 0 ? columns_[column].title : rows_[i - 1][column];
      if (!lines[i].empty()) lines[i] += kGap;
      lines[i] += columns_[column].align == Align::kLeft ? PadRight(cell, widest) : PadLeft(cell, widest);
    }
  }
  for (std::string &line : lines) {
    line.erase(line.find_last_not_of(' ') + 1);
    line = Cut(line, width);
  }
  return lines;
}

void Table::Print() const {
  const std::vector<std::string> lines = Lines(OutputWidth());
  ctl::Print(Bold(lines.front()) + "\n");
  for (size_t i = 1; i < lines.size(); ++i) ctl::Print(lines[i] + "\n");
}

}  // namespace zor::ctl
