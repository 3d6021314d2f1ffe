// SQLite, loaded when the configuration store is first used: most daemons never use it, and the library would take
// 40 KiB of each one's memory.
#ifndef PLATFORM_SQLITE_H
#define PLATFORM_SQLITE_H

#include <sqlite3.h>

#include <climits>

namespace zor::platform {

struct Sqlite {
  decltype(&sqlite3_open_v2) open;
  decltype(&sqlite3_close) close;
  decltype(&sqlite3_busy_timeout) setBusyTimeout;
  decltype(&sqlite3_exec) execute;
  decltype(&sqlite3_get_autocommit) getAutocommit;
  decltype(&sqlite3_errcode) errorOf;
  decltype(&sqlite3_errmsg) messageOf;
  decltype(&sqlite3_errstr) textOf;
  decltype(&sqlite3_prepare_v2) prepare;
  decltype(&sqlite3_finalize) finalize;
  decltype(&sqlite3_step) step;
  decltype(&sqlite3_reset) reset;
  decltype(&sqlite3_bind_int64) bindNumber;
  decltype(&sqlite3_bind_text) bindText;
  decltype(&sqlite3_bind_blob64) bindBytes;
  decltype(&sqlite3_column_int64) numberIn;
  decltype(&sqlite3_column_text) textIn;
  decltype(&sqlite3_column_blob) bytesIn;
  decltype(&sqlite3_column_bytes) sizeOf;
  decltype(&sqlite3_vfs_find) findFileSystem;
  decltype(&sqlite3_vfs_register) registerFileSystem;
};

// The name of the file system that the store's files are opened in. It shows no journal of changes that were broken
// off: whoever may write beside a file could plant one, with which SQLite would change the file, and delete any other.
// The store keeps its own changes in a log, and those of other files are made before these have their names.
inline constexpr char kFileSystem[] = "zor-store";

// A path as SQLite takes it where it is told more about the file, such as "?immutable=1". It is cut when it is longer
// than a path can be.
class SqliteUri {
 public:
  explicit SqliteUri(const char *path, const char *query = "");
  const char *c_str() const { return text_; }

 private:
  char text_[3 * PATH_MAX + 64];  // each character may become "%25"
};

// Loads it, once. False if that fails: the next call tries again. Any thread may call it.
bool LoadSqlite();
// Its functions; null before it is loaded.
extern Sqlite sqlite;

}  // namespace zor::platform

#endif
