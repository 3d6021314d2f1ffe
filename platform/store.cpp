#include "store.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>
#include <zor/platform/file.h>
#include <zor/platform/limits.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace zor::platform {

namespace {

constexpr int kStoreVersion = 1;
// Its group is that of the daemons that share the configuration; pass phrases must stay unreadable to others.
constexpr mode_t kStoreMode = 0660;
constexpr useconds_t kRetryPauseUs = 5000;

std::mutex storeMutex;
sqlite3 *storeConnection = nullptr;

void CloseConnection() {
  Database(storeConnection).reset();
  storeConnection = nullptr;
}

void BeforeFork() {
  storeMutex.lock();
  CloseConnection();
}

void AfterFork() {
  storeMutex.unlock();
}

int CreateTables(sqlite3 *db) {
  int result = Execute(db, "BEGIN");
  for (const Table &table : kTables) {
    if (result == SQLITE_OK) result = Execute(db, table.sql);
  }
  char version[64];
  std::snprintf(version, sizeof version, "PRAGMA user_version = %d; COMMIT", kStoreVersion);
  return result == SQLITE_OK ? Execute(db, version) : result;
}

// A system whose daemons cannot make files beside the fixed path has a link there. SQLite follows it by itself, to a
// file that exists; what is still to be made must be made where it leads.
bool FollowLink(char (&path)[PATH_MAX]) {
  char target[PATH_MAX];
  const ssize_t length = ::readlink(path, target, sizeof target);
  if (length < 0) return errno == EINVAL || errno == ENOENT;  // no link
  if (length >= PATH_MAX || target[0] != '/') return false;
  std::memcpy(path, target, static_cast<size_t>(length));
  path[length] = '\0';
  return true;
}

// Two processes that come at the same time both make a file; the first one to name it wins. The file is put into WAL
// mode while no other process knows it: a change of the mode does not wait for those who have the store open.
int CreateStore(const char *path) {
  Replacement file(path);
  const int result = CreateStoreFile(file, kStoreMode, "PRAGMA journal_mode = WAL");
  if (result != SQLITE_OK) return result;
  return file.CommitNew() || errno == EEXIST ? SQLITE_OK : SQLITE_CANTOPEN;
}

int OpenStore(Database *db) {
  char path[PATH_MAX];
  if (ZOR_UTIL_FixedPath(ZOR_STORE_PATH, path, sizeof path) == 0 || !FollowLink(path)) return SQLITE_CANTOPEN;
  int result = SQLITE_OK;
  if (::access(path, F_OK) != 0 && errno == ENOENT) result = CreateStore(path);
  if (result == SQLITE_OK) result = OpenFile(path, db);
  if (result == SQLITE_OK) result = CheckVersion(db->get(), "PRAGMA user_version");
  if (result == SQLITE_OK) result = Execute(db->get(), "PRAGMA synchronous = FULL");
  return result;
}

uint32_t StatusOf(int result) {
  switch (result & 0xff) {
    case SQLITE_OK:
      return ZOR_STORE_OK;
    case kNotFound:
      return ZOR_STORE_E_NOT_FOUND;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
      return ZOR_STORE_E_BUSY;
    case SQLITE_NOMEM:
    case SQLITE_TOOBIG:
      return ZOR_STORE_E_NO_MEMORY;
    default:
      return ZOR_STORE_E_IO;
  }
}

}  // namespace

Statement &Statement::Keep(int result) {
  if (result_ == SQLITE_OK) result_ = result;
  return *this;
}

Statement &Statement::Bind(uint32_t number) {
  return Keep(sqlite.bindNumber(statement_, next_++, number));
}

Statement &Statement::Bind(const char *text) {
  return Keep(sqlite.bindText(statement_, next_++, text, -1, SQLITE_STATIC));
}

Statement &Statement::Bind(const void *bytes, uint32_t size) {
  return Keep(sqlite.bindBytes(statement_, next_++, bytes, size, SQLITE_STATIC));
}

int Statement::Run() {
  const int result = Step();
  return result == SQLITE_DONE ? SQLITE_OK : result;
}

int Statement::Find() {
  const int result = Step();
  if (result == SQLITE_DONE) return kNotFound;
  return result == SQLITE_ROW ? SQLITE_OK : result;
}

void Statement::Reset() {
  sqlite.reset(statement_);
  next_ = 1;
}

const char *Statement::Text(int column) const {
  return reinterpret_cast<const char *>(sqlite.textIn(statement_, column));
}

Transaction::~Transaction() {
  if (sqlite.getAutocommit(db_) == 0) Execute(db_, "ROLLBACK");
}

int Transaction::End(int workResult) {
  return workResult == SQLITE_OK ? Execute(db_, "COMMIT") : workResult;
}

int Execute(sqlite3 *db, const char *sql) {
  return sqlite.execute(db, sql, nullptr, nullptr, nullptr);
}

int CreateStoreFile(const Replacement &file, mode_t mode, const char *then) {
  if (!file.Create(mode).valid()) return SQLITE_CANTOPEN;
  Database db;
  int result = OpenFile(file.building(), &db);
  if (result == SQLITE_OK) result = CreateTables(db.get());
  if (result == SQLITE_OK) result = Execute(db.get(), then);
  return result;
}

int OpenFile(const char *path, Database *db) {
  if (!LoadSqlite()) return SQLITE_CANTOPEN;
  sqlite3 *opened = nullptr;
  const int result =
      sqlite.open(SqliteUri(path).c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_URI, kFileSystem);
  db->reset(opened);
  if (result == SQLITE_OK) sqlite.setBusyTimeout(opened, ZOR_STORE_WAIT_MS);
  return result;
}

int CheckVersion(sqlite3 *db, const char *pragma) {
  Statement version(db, pragma);
  const int result = version.Find();
  if (result != SQLITE_OK) return result;
  return version.Number(0) == kStoreVersion ? SQLITE_OK : SQLITE_NOTADB;
}

uint32_t Conclude(const char *path, sqlite3 *db, int result) {
  const uint32_t status = StatusOf(result);
  // If the library with the texts cannot be loaded, that is what it has failed for.
  if ((status == ZOR_STORE_E_BUSY || status == ZOR_STORE_E_IO) && LoadSqlite()) {
    // The connection's own text says more, when it is about this failure.
    const bool known = db != nullptr && (sqlite.errorOf(db) & 0xff) == (result & 0xff);
    std::fprintf(stderr, "configuration store %s: %s\n", path, known ? sqlite.messageOf(db) : sqlite.textOf(result));
  }
  return status;
}

StoreUse::StoreUse() : guard_(storeMutex), result_(SQLITE_OK) {
  static const int atFork = ::pthread_atfork(BeforeFork, AfterFork, AfterFork);
  if (atFork != 0) result_ = SQLITE_NOMEM;
  if (storeConnection != nullptr || result_ != SQLITE_OK) return;
  do {
    Database opened;
    result_ = OpenStore(&opened);
    CloseConnection();
    storeConnection = opened.release();
  } while (MayRetry(result_));
}

// Most waiting is SQLite's own. It does not wait for a process that recovers the journal or removes it at its end.
bool StoreUse::MayRetry(int result) const {
  if (StatusOf(result) != ZOR_STORE_E_BUSY || Clock::now() - since_ > std::chrono::milliseconds(ZOR_STORE_WAIT_MS)) {
    return false;
  }
  ::usleep(kRetryPauseUs);
  return true;
}

sqlite3 *StoreUse::db() const {
  return storeConnection;
}

uint32_t StoreUse::Conclude(const char *path, int result) {
  const uint32_t status = platform::Conclude(path, storeConnection, result);
  if (status == ZOR_STORE_E_IO || result_ != SQLITE_OK) CloseConnection();
  return status;
}

}  // namespace zor::platform
