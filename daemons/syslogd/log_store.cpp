#include "syslogd/log_store.h"

#include <sqlite3.h>

#include <cstdio>
#include <string_view>

#include "programs/limits.h"

namespace zor::syslogd {
namespace {

using daemon::Statement;

// "level" and "type" are bits; "parameters" are texts, each with its NUL.
constexpr char kSchema[] =
    "PRAGMA journal_mode = WAL;"
    "PRAGMA synchronous = FULL;"
    "CREATE TABLE IF NOT EXISTS record (id INTEGER PRIMARY KEY, time INTEGER NOT NULL, item INTEGER NOT NULL,"
    " type INTEGER NOT NULL, level INTEGER NOT NULL, parameters BLOB NOT NULL) STRICT;"
    "CREATE TABLE IF NOT EXISTS setting (name TEXT PRIMARY KEY, value BLOB NOT NULL) STRICT, WITHOUT ROWID;";

std::string Join(const std::vector<std::string> &texts) {
  std::string joined;
  for (const std::string &text : texts) joined += text + '\0';
  return joined;
}

std::vector<std::string> Split(std::string_view joined) {
  std::vector<std::string> texts;
  for (std::size_t end; (end = joined.find('\0')) != joined.npos; joined.remove_prefix(end + 1)) {
    texts.emplace_back(joined.substr(0, end));
  }
  return texts;
}

std::uint32_t TypesOf(std::uint32_t typeLevel) {
  return typeLevel >> ZOR_LOG_TYPE_SHIFT;
}
std::uint32_t LevelsOf(std::uint32_t typeLevel) {
  return typeLevel & ZOR_LOG_LEVEL_MASK;
}

LogRecord RecordOf(const Statement &row) {
  const auto word = [&row](int column) { return static_cast<std::uint32_t>(row.Number(column)); };
  return {static_cast<std::time_t>(row.Number(0)), word(1), word(2) << ZOR_LOG_TYPE_SHIFT | word(3),
          Split(row.Bytes(4))};
}

}  // namespace

bool LogStore::Report(const char *what) {
  problems_.Print("%s: %s", what, sqlite3_errmsg(database_.get()));
  return false;
}

bool LogStore::Run(const char *sql) {
  return sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool LogStore::OpenFile(const std::string &path) {
  sqlite3 *opened = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  database_.reset(opened);
  if (result != SQLITE_OK) return false;
  sqlite3_busy_timeout(opened, limits::syslogd::kBusyMs);
  return Run(kSchema);
}

bool LogStore::Open(const std::string &path) {
  if (OpenFile(path)) return true;
  const int error = sqlite3_errcode(database_.get());
  Report(path.c_str());
  if (error != SQLITE_NOTADB && error != SQLITE_CORRUPT) return false;
  database_.reset();
  const std::string aside = path + ".damaged";
  // The old file's journal must not be replayed into the new file.
  for (const char *companion : {"-wal", "-shm"}) std::remove((path + companion).c_str());
  if (std::rename(path.c_str(), aside.c_str()) != 0) {
    problems_.PrintErrno("%s: cannot set the damaged log aside", path.c_str());
    return false;
  }
  problems_.Print("%s: damaged, set aside as %s", path.c_str(), aside.c_str());
  return OpenFile(path) || Report(path.c_str());
}

bool LogStore::Begin() {
  return sqlite3_get_autocommit(database_.get()) == 0 || Run("BEGIN IMMEDIATE");
}

bool LogStore::Append(const LogRecord &record) {
  const std::string parameters = Join(record.parameters);
  const bool added = Begin() && Statement(database_.get(),
                                          "INSERT INTO record (time, item, type, level, parameters)"
                                          " VALUES (?, ?, ?, ?, ?)")
                                    .Bind(record.time)
                                    .Bind(record.index)
                                    .Bind(TypesOf(record.typeLevel))
                                    .Bind(LevelsOf(record.typeLevel))
                                    .Bind(parameters)
                                    .Run();
  if (!added) return Report("record dropped");
  return ++uncommitted_ < limits::syslogd::kUnwrittenRecords || Commit();
}

bool LogStore::Commit() {
  if (database_ == nullptr || sqlite3_get_autocommit(database_.get()) != 0) return true;
  uncommitted_ = 0;
  const bool pruned = Statement(database_.get(),
                                "DELETE FROM record WHERE id <= (SELECT id FROM record ORDER BY id DESC"
                                " LIMIT 1 OFFSET ?)")
                          .Bind(maxRecords_)
                          .Run();
  if (pruned && Run("COMMIT")) return true;
  Report("latest records dropped");
  Run("ROLLBACK");
  return false;
}

bool LogStore::Clear(std::uint32_t types) {
  const bool cleared = Begin() && Statement(database_.get(), "DELETE FROM record WHERE type & ?").Bind(types).Run();
  return cleared ? Commit() : Report("cannot clear the log");
}

std::optional<std::vector<LogRecord>> LogStore::Read(std::uint32_t typeLevel, std::uint32_t count) {
  Statement query(database_.get(),
                  "SELECT time, item, type, level, parameters FROM (SELECT * FROM record WHERE type & ? AND level & ?"
                  " ORDER BY id DESC LIMIT ?) ORDER BY id");
  query.Bind(TypesOf(typeLevel)).Bind(LevelsOf(typeLevel)).Bind(count == 0 ? -1 : std::int64_t{count});
  std::vector<LogRecord> records;
  int result;
  while ((result = query.Step()) == SQLITE_ROW) records.push_back(RecordOf(query));
  if (result == SQLITE_DONE) return records;
  Report("cannot read the log");
  return std::nullopt;
}

std::string LogStore::Setting(const char *name) {
  Statement query(database_.get(), "SELECT value FROM setting WHERE name = ?");
  const int result = query.BindText(name).Step();
  if (result == SQLITE_ROW) return std::string(query.Bytes(0));
  if (result != SQLITE_DONE) Report("cannot read a setting");
  return {};
}

bool LogStore::SetSetting(const char *name, const std::string &value) {
  const bool set = Begin() && Statement(database_.get(), "INSERT OR REPLACE INTO setting (name, value) VALUES (?, ?)")
                                  .BindText(name)
                                  .Bind(value)
                                  .Run();
  return set ? Commit() : Report("cannot save a setting");
}

}  // namespace zor::syslogd
