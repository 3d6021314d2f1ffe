#include "programs/sqlite_statement.h"

#include <sqlite3.h>

#include <cstddef>

namespace zor::daemon {

void DatabaseCloser::operator()(sqlite3 *database) const {
  sqlite3_close(database);
}

Statement::Statement(sqlite3 *database, const char *sql) {
  sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr);
}

Statement::~Statement() {
  sqlite3_finalize(statement_);
}

Statement &Statement::Reset() {
  sqlite3_reset(statement_);
  next_ = 1;
  return *this;
}

Statement &Statement::Bind(std::int64_t number) {
  sqlite3_bind_int64(statement_, next_++, number);
  return *this;
}

Statement &Statement::Bind(std::string_view bytes) {
  sqlite3_bind_blob(statement_, next_++, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
  return *this;
}

Statement &Statement::BindText(const char *text) {
  sqlite3_bind_text(statement_, next_++, text, -1, SQLITE_STATIC);
  return *this;
}

int Statement::Step() {
  return sqlite3_step(statement_);
}

bool Statement::Run() {
  return Step() == SQLITE_DONE;
}

std::int64_t Statement::Number(int column) const {
  return sqlite3_column_int64(statement_, column);
}

std::string_view Statement::Bytes(int column) const {
  const auto *bytes = static_cast<const char *>(sqlite3_column_blob(statement_, column));
  return {bytes, bytes == nullptr ? 0 : static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}

}  // namespace zor::daemon
