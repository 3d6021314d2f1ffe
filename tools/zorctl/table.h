// Rows of text in columns. In a pipe every row is complete; on a terminal it is truncated to the width.
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
  std::vector<Column> columns_;
  std::vector<Row> rows_;
};

}  // namespace zor::ctl

#endif
