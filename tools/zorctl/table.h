// Rows of text in columns. In a pipe every row is complete; on a terminal that is too narrow the columns that are
// needed least are left out, and what is still too wide is truncated.
#ifndef ZORCTL_TABLE_H
#define ZORCTL_TABLE_H

#include <string>
#include <vector>

namespace zor::ctl {

class Table {
 public:
  enum class Align { kLeft, kRight };
  struct Column {
    std::string title;
    Align align = Align::kLeft;
    unsigned dispensable = 0;  // the highest is left out first, 0 never
  };
  using Row = std::vector<std::string>;

  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  // One cell for each column; cells are escaped here.
  void Add(const Row &row);
  // Prints titles and rows.
  void Print() const;
  // The same for lines of that width; the titles come first.
  std::vector<std::string> Lines(size_t width) const;

 private:
  size_t WidthOf(size_t column) const;
  // The places of the columns that lines of that width have.
  std::vector<size_t> Fitting(size_t width) const;

  std::vector<Column> columns_;
  std::vector<Row> rows_;
};

}  // namespace zor::ctl

#endif
