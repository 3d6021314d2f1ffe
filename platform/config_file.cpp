// A file is attached to a connection under the name "file", so that one transaction reads here and writes there.
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/platform/file.h>
#include <zor/platform/limits.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "common/unique_fd.h"
#include "store.h"

namespace zor::platform {
namespace {

constexpr mode_t kFileMode = 0600;
constexpr size_t kSqlSize = 128;

// How files are attached. Anybody may have put a log of changes beside one: SQLite would write it into a file that is
// read, or what is to be written into the log. Nobody else uses the file, so that it needs no locks, and without these
// there is no log.
constexpr char kForReading[] = "?immutable=1";
constexpr char kForWriting[] = "?nolock=1";

class Attached {
 public:
  Attached(sqlite3 *db, const char *path, const char *how) : db_(db) {
    const SqliteUri uri(path, how);
    Statement attach(db, "ATTACH ? AS file");
    result_ = attach.Bind(uri.c_str()).Run();
  }
  Attached(const Attached &) = delete;
  Attached &operator=(const Attached &) = delete;
  ~Attached() {
    if (result_ == SQLITE_OK) Execute(db_, "DETACH file");
  }
  int result() const { return result_; }

 private:
  sqlite3 *db_;
  int result_;
};

bool ArePartsValid(uint32_t parts) {
  return parts != 0 && (parts & ~ZOR_STORE_ALL) == 0;
}

// A process that closes the store's file loses SQLite's locks on it.
bool IsTheStore(const struct stat &status) {
  char path[PATH_MAX];
  struct stat store = {};
  return ZOR_UTIL_FixedPath(ZOR_STORE_PATH, path, sizeof path) != 0 && ::stat(path, &store) == 0 &&
         store.st_dev == status.st_dev && store.st_ino == status.st_ino;
}

// What has a log, such as a copy of the store, may have its last changes only there.
bool HasLog(const char *path) {
  constexpr off_t kVersions = 18;  // of the format, for those who write and who read
  constexpr char kWithLog = 2;
  char versions[2] = {};
  const UniqueFd file(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  return ::pread(file.get(), versions, sizeof versions, kVersions) == sizeof versions &&
         (versions[0] == kWithLog || versions[1] == kWithLog);
}

// SQLite would open anything, and make what is missing.
int FindFile(const char *path) {
  struct stat status = {};
  if (::stat(path, &status) != 0) return errno == ENOENT ? kNotFound : SQLITE_CANTOPEN;
  if (!S_ISREG(status.st_mode) || IsTheStore(status)) return SQLITE_CANTOPEN;
  return HasLog(path) ? SQLITE_NOTADB : SQLITE_OK;
}

// Runs a statement once for each table of the parts; each "%s" of it becomes the table's name.
int ForEachTable(sqlite3 *db, uint32_t parts, const char *format) {
  int result = SQLITE_OK;
  for (const Table &table : kTables) {
    if ((table.part & parts) == 0 || result != SQLITE_OK) continue;
    char sql[kSqlSize];
    std::snprintf(sql, sizeof sql, format, table.name, table.name);
    result = Execute(db, sql);
  }
  return result;
}

bool IsOurTable(const char *sql) {
  for (const Table &table : kTables) {
    if (sql != nullptr && std::strcmp(sql, table.sql) == 0) return true;
  }
  return false;
}

// Exactly our tables and nothing beside them: a view or a trigger of a file from elsewhere would run in here.
int CheckTables(sqlite3 *db) {
  Statement query(db, "SELECT sql FROM file.sqlite_schema");
  size_t count = 0;
  int result = query.Find();
  for (; result == SQLITE_OK; result = query.Find()) {
    if (!IsOurTable(query.Text(0))) return SQLITE_NOTADB;
    ++count;
  }
  if (result != kNotFound) return result;
  return count == std::size(kTables) ? SQLITE_OK : SQLITE_NOTADB;
}

int CheckAttached(sqlite3 *db) {
  int result = CheckVersion(db, "PRAGMA file.user_version");
  if (result == SQLITE_OK) result = CheckTables(db);
  if (result != SQLITE_OK) return result;
  Statement check(db, "PRAGMA file.integrity_check(1)");
  result = check.Find();
  if (result != SQLITE_OK) return result;
  return std::strcmp(check.Text(0), "ok") == 0 ? SQLITE_OK : SQLITE_CORRUPT;
}

int CheckFile(const char *path) {
  int result = FindFile(path);
  if (result != SQLITE_OK) return result;
  Database db;
  result = OpenFile(":memory:", &db);
  if (result != SQLITE_OK) return result;
  const Attached file(db.get(), path, kForReading);
  return file.result() == SQLITE_OK ? CheckAttached(db.get()) : file.result();
}

int CopyToFile(sqlite3 *db, const char *path, uint32_t parts) {
  const Attached file(db, path, kForWriting);
  if (file.result() != SQLITE_OK) return file.result();
  Transaction transaction(db, "BEGIN");
  int result = transaction.result();
  if (result == SQLITE_OK) result = ForEachTable(db, parts, "INSERT INTO file.%s SELECT * FROM main.%s");
  return transaction.End(result);
}

// The store is written first: the transaction locks it at once.
int CopyFromFile(sqlite3 *db, const char *path, uint32_t parts) {
  const Attached file(db, path, kForReading);
  if (file.result() != SQLITE_OK) return file.result();
  Transaction transaction(db, "BEGIN");
  int result = transaction.result();
  if (result == SQLITE_OK) result = ForEachTable(db, parts, "DELETE FROM main.%s");
  if (result == SQLITE_OK) result = CheckAttached(db);
  if (result == SQLITE_OK) result = ForEachTable(db, parts, "INSERT INTO main.%s SELECT * FROM file.%s");
  return transaction.End(result);
}

int WriteNewFile(sqlite3 *db, const char *path, uint32_t parts) {
  Replacement file(path);
  int result = CreateStoreFile(file, kFileMode);
  if (result == SQLITE_OK) result = CopyToFile(db, file.building(), parts);
  if (result != SQLITE_OK) return result;
  return file.Commit() && file.SyncDirectory() ? SQLITE_OK : SQLITE_IOERR;
}

int WriteFile(sqlite3 *db, const char *path, uint32_t parts) {
  const int existing = CheckFile(path);
  return existing == SQLITE_OK || existing == kNotFound ? WriteNewFile(db, path, parts) : existing;
}

int ReadFile(sqlite3 *db, const char *path, uint32_t parts) {
  const int existing = FindFile(path);
  return existing == SQLITE_OK ? CopyFromFile(db, path, parts) : existing;
}

}  // namespace
}  // namespace zor::platform

uint32_t ZOR_STORE_WriteFile(const char *path, uint32_t parts) {
  if (path == nullptr || !zor::platform::ArePartsValid(parts)) return ZOR_STORE_E_ARGUMENT;
  return zor::platform::UseStore([&](sqlite3 *db) { return zor::platform::WriteFile(db, path, parts); }, path);
}

uint32_t ZOR_STORE_ReadFile(const char *path, uint32_t parts) {
  if (path == nullptr || !zor::platform::ArePartsValid(parts)) return ZOR_STORE_E_ARGUMENT;
  return zor::platform::UseStore([&](sqlite3 *db) { return zor::platform::ReadFile(db, path, parts); }, path);
}

uint32_t ZOR_STORE_CheckFile(const char *path) {
  if (path == nullptr) return ZOR_STORE_E_ARGUMENT;
  return zor::platform::Conclude(path, nullptr, zor::platform::CheckFile(path));
}

uint32_t ZOR_STORE_Clear(uint32_t parts) {
  if (!zor::platform::ArePartsValid(parts)) return ZOR_STORE_E_ARGUMENT;
  return zor::platform::UseStore([&](sqlite3 *db) {
    zor::platform::Transaction transaction(db);
    const int begun = transaction.result();
    return transaction.End(begun == SQLITE_OK ? zor::platform::ForEachTable(db, parts, "DELETE FROM main.%s") : begun);
  });
}
