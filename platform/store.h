/*
 * The SQLite file behind the configuration store.
 *
 * One connection per process, opened at the first use, guarded by a mutex. SQLite's locks do not survive a fork, and a
 * connection that is opened beside an inherited one believes that it holds what only the parent holds. So the
 * connection is closed before every fork, and parent and child open their own when they next need one.
 *
 * The file is made under another name and gets its own when it is complete, so no process opens half a store.
 */
#ifndef PLATFORM_STORE_H
#define PLATFORM_STORE_H

#include <sys/types.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>

#include "common/replacement.h"
#include "sqlite.h"

namespace zor::platform {

struct DatabaseCloser {
  void operator()(sqlite3 *db) const { sqlite.close(db); }
};
using Database = std::unique_ptr<sqlite3, DatabaseCloser>;

// What functions that work on a database return: a result code of SQLite, or this.
constexpr int kNotFound = SQLITE_NOTFOUND;

struct Table {
  const char *name;
  uint32_t part;  // of the store, ZOR_STORE_CONFIGURATION or ZOR_STORE_APPDATA
  const char *sql;
};

// SQLite keeps these texts as they are written here, and files that come from elsewhere are compared with them.
constexpr Table kTables[] = {
    {"parameters", ZOR_STORE_CONFIGURATION,
     "CREATE TABLE parameters (id INTEGER NOT NULL, instance INTEGER NOT NULL, value BLOB NOT NULL,"
     " PRIMARY KEY (id, instance)) STRICT, WITHOUT ROWID"},
    {"objects", ZOR_STORE_CONFIGURATION,
     "CREATE TABLE objects (class INTEGER NOT NULL, instance INTEGER NOT NULL,"
     " PRIMARY KEY (class, instance)) STRICT, WITHOUT ROWID"},
    {"object_values", ZOR_STORE_CONFIGURATION,
     "CREATE TABLE object_values (class INTEGER NOT NULL, instance INTEGER NOT NULL, name TEXT NOT NULL,"
     " value TEXT NOT NULL, PRIMARY KEY (class, instance, name)) STRICT, WITHOUT ROWID"},
    {"app_data", ZOR_STORE_APPDATA, "CREATE TABLE app_data (item INTEGER PRIMARY KEY, value BLOB NOT NULL) STRICT"},
};

// One prepared statement. The first failure sticks and is what the later steps return.
class Statement {
 public:
  Statement(sqlite3 *db, const char *sql) : result_(sqlite.prepare(db, sql, -1, &statement_, nullptr)) {}
  Statement(const Statement &) = delete;
  Statement &operator=(const Statement &) = delete;
  ~Statement() { sqlite.finalize(statement_); }

  // Bind the next parameter. Texts and blobs must outlive the statement.
  Statement &Bind(uint32_t number);
  Statement &Bind(const char *text);
  Statement &Bind(const void *bytes, uint32_t size);

  // SQLITE_ROW, SQLITE_DONE or a failure.
  int Step() { return result_ == SQLITE_OK ? sqlite.step(statement_) : result_; }
  // Steps a statement that gives no rows: SQLITE_OK or a failure.
  int Run();
  // Steps a query that gives one row or none: SQLITE_OK, kNotFound or a failure.
  int Find();
  // Makes it ready to run again with new parameters.
  void Reset();

  uint32_t Number(int column) const { return static_cast<uint32_t>(sqlite.numberIn(statement_, column)); }
  const char *Text(int column) const;
  const void *Bytes(int column) const { return sqlite.bytesIn(statement_, column); }
  uint32_t Size(int column) const { return static_cast<uint32_t>(sqlite.sizeOf(statement_, column)); }

 private:
  Statement &Keep(int result);

  sqlite3_stmt *statement_ = nullptr;
  int next_ = 1;
  int result_;
};

int Execute(sqlite3 *db, const char *sql);

// A transaction; rolled back unless it is committed. It locks the store for writing at once, by default: two processes
// that read first and write then would wait for each other.
class Transaction {
 public:
  explicit Transaction(sqlite3 *db, const char *begin = "BEGIN IMMEDIATE") : db_(db), result_(Execute(db, begin)) {}
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;
  ~Transaction();

  // Whether it could begin.
  int result() const { return result_; }
  // Commits if the work went well; the first failure of the two.
  int End(int workResult);

 private:
  sqlite3 *db_;
  int result_;
};

// Makes a new, empty store file that is to replace another, and then runs a statement on it.
int CreateStoreFile(const Replacement &file, mode_t mode, const char *then = "");

// Opens an existing file.
int OpenFile(const char *path, Database *db);

// Whether the version that the pragma reads is ours: SQLITE_NOTADB when it is not.
int CheckVersion(sqlite3 *db, const char *pragma);

// The status for a result; prints a line about the path when something is wrong with the file behind it.
uint32_t Conclude(const char *path, sqlite3 *db, int result);

// The connection of this process, for as long as the object lives.
class StoreUse {
 public:
  StoreUse();
  sqlite3 *db() const;
  int result() const { return result_; }
  // Whether the store was busy and may be tried again, after a short pause, within the time that a call may wait.
  bool MayRetry(int result) const;
  // As the function, and closes a connection that failed: the next use may find a repaired file.
  uint32_t Conclude(const char *path, int result);

 private:
  using Clock = std::chrono::steady_clock;

  std::lock_guard<std::mutex> guard_;
  const Clock::time_point since_ = Clock::now();
  int result_;
};

// Runs work(db), which returns a result, on the connection of this process; again when the store was busy, so work that
// fails must leave nothing behind. The path is what the work is about.
template <typename Work>
uint32_t UseStore(const Work &work, const char *path = ZOR_STORE_PATH) {
  StoreUse use;
  if (use.result() != SQLITE_OK) return use.Conclude(ZOR_STORE_PATH, use.result());
  int result;
  do {
    result = work(use.db());
  } while (use.MayRetry(result));
  return use.Conclude(path, result);
}

}  // namespace zor::platform

#endif
