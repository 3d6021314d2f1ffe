// A prepared statement with an owner.
#ifndef PROGRAMS_SQLITE_STATEMENT_H
#define PROGRAMS_SQLITE_STATEMENT_H

#include <cstdint>
#include <memory>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace zor::daemon {

struct DatabaseCloser {
  void operator()(sqlite3 *database) const;
};
using Database = std::unique_ptr<sqlite3, DatabaseCloser>;

// All calls on a statement that could not be prepared fail.
class Statement {
 public:
  Statement(sqlite3 *database, const char *sql);
  Statement(const Statement &) = delete;
  Statement &operator=(const Statement &) = delete;
  ~Statement();

  // Begins anew, for the next values.
  Statement &Reset();
  // Bind the next parameter. Bytes must outlive the statement.
  Statement &Bind(std::int64_t number);
  Statement &Bind(std::string_view bytes);
  Statement &BindText(const char *text);

  // SQLite's result.
  int Step();
  // Whether a statement without rows has succeeded.
  bool Run();

  // Columns of the row.
  std::int64_t Number(int column) const;
  std::string_view Bytes(int column) const;

 private:
  sqlite3_stmt *statement_ = nullptr;
  int next_ = 1;
};

}  // namespace zor::daemon

#endif
