#include "zorctl/table.h"

#include <algorithm>

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

std::vector<std::string> Table::Lines(size_t width) const {
  std::vector<std::string> lines(rows_.size() + 1);
  for (size_t column = 0; column < columns_.size(); ++column) {
    size_t widest = Width(columns_[column].title);
    for (const Row &row : rows_) widest = std::max(widest, Width(row[column]));
    for (size_t i = 0; i < lines.size(); ++i) {
      const std::string &cell = i == 0 ? columns_[column].title : rows_[i - 1][column];
      if (column > 0) lines[i] += kGap;
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
