#include "zorbridge/outbox_file.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "common/unique_fd.h"
#include "programs/limits.h"
#include "zorbridge/written_bytes.h"

namespace zor::bridge {
namespace {

using daemon::Statement;

constexpr std::int64_t kVersion = 1;

// The lock comes first: with it, the log's index stays in memory.
constexpr char kSettings[] =
    "PRAGMA locking_mode = EXCLUSIVE;"
    "PRAGMA journal_mode = WAL;"
    "PRAGMA synchronous = FULL;"
    "PRAGMA wal_autocheckpoint = 1000;"  // pages of 4096 bytes
    "PRAGMA journal_size_limit = 4194304;"
    "PRAGMA secure_delete = OFF;"  // would write what is removed again
    "PRAGMA temp_store = MEMORY;"
    "PRAGMA cell_size_check = ON;"
    "PRAGMA cache_size = -256;";  // KiB

constexpr char kSchema[] =
    "CREATE TABLE IF NOT EXISTS stream (id INTEGER PRIMARY KEY, name BLOB NOT NULL) STRICT;"
    "CREATE TABLE IF NOT EXISTS state (id INTEGER PRIMARY KEY, next INTEGER NOT NULL, first_key INTEGER NOT NULL,"
    " day_bytes INTEGER NOT NULL, day_seconds INTEGER NOT NULL) STRICT;"
    "PRAGMA user_version = 1;";

// Blobs, since a text in UTF-8 need not be valid to be counted. The table's number follows "record".
std::string TableSchema(std::size_t table) {
  return "CREATE TABLE IF NOT EXISTS record" + std::to_string(table) +
         " (key INTEGER PRIMARY KEY, time INTEGER NOT NULL, topic BLOB NOT NULL, members BLOB NOT NULL) STRICT;";
}

constexpr std::int64_t kShrinkUnused = 256;  // pages
constexpr std::int64_t kShrinkUsed = 64;

KeptRecord RecordOf(const Statement &row) {
  KeptRecord record;
  record.key = row.Number(0);
  record.timeMs = row.Number(1);
  const std::string_view topic = row.Bytes(2);
  const std::string_view members = row.Bytes(3);
  record.text.reserve(topic.size() + members.size());
  record.text.append(topic).append(members);
  record.topicLength = static_cast<std::uint32_t>(topic.size());
  return record;
}

}  // namespace

bool OutboxFile::Failed() {
  const int error = database_ == nullptr ? SQLITE_NOMEM : sqlite3_errcode(database_.get());
  const int system = database_ == nullptr ? 0 : sqlite3_system_errno(database_.get());
  problem_ = database_ == nullptr ? sqlite3_errstr(error) : sqlite3_errmsg(database_.get());
  if (system != 0 && (error == SQLITE_IOERR || error == SQLITE_CANTOPEN)) {
    problem_ += std::string(": ") + ::strerrordesc_np(system);
  }
  damaged_ = error == SQLITE_CORRUPT || error == SQLITE_NOTADB;
  return false;
}

bool OutboxFile::Run(const std::string &sql) {
  return sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK || Failed();
}

bool OutboxFile::Number(const std::string &sql, std::int64_t &number) {
  Statement query(database_.get(), sql.c_str());
  if (query.Step() != SQLITE_ROW) return Failed();
  number = query.Number(0);
  return true;
}

// Made here, since SQLite would make it readable by all.
bool OutboxFile::Open(const std::string &path, std::uint64_t tableBytes) {
  Close();
  tableBytes_ = tableBytes;
  UniqueFd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR)).reset();
  sqlite3 *opened = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, CountingFileSystem());
  database_.reset(opened);
  if (result != SQLITE_OK) return Failed();
  sqlite3_busy_timeout(opened, limits::zorbridge::kBusyMs);
  return Prepare();
}

bool OutboxFile::Prepare() {
  std::int64_t version = 0;
  if (!Run(kSettings) || !Number("PRAGMA user_version", version)) return false;
  if (version > kVersion) {
    problem_ = "made by a later version";
    damaged_ = true;
    return false;
  }
  if (version == kVersion) return true;
  bool made = Run("BEGIN IMMEDIATE") && Run(kSchema);
  for (std::size_t table = 0; table < kTables; ++table) made = made && Run(TableSchema(table));
  return made && Run("COMMIT");
}

void OutboxFile::Close() {
  put_.reset();
  database_.reset();
}

bool OutboxFile::ReadContent(Content &content) {
  if (!ReadStreams(content.streams) || !ReadState(content.state)) return false;
  ring_ = {};
  const std::int64_t firstKey = content.state ? content.state->firstKey : 0;
  content.backlog.firstKey = firstKey;
  for (std::size_t table = 0; table < kTables; ++table) {
    if (!ReadTable(table, firstKey, content.backlog)) return false;
    if (ring_.tables[table].endKey > ring_.tables[ring_.newest].endKey) ring_.newest = table;
  }
  UseTable(ring_.newest);
  return true;
}

bool OutboxFile::ReadTable(std::size_t table, std::int64_t firstKey, RecordWindow::Hole &backlog) {
  const std::string from = " FROM record" + std::to_string(table);
  if (!Number("SELECT coalesce(max(key), -1) + 1" + from, ring_.tables[table].endKey)) return false;
  if (ring_.tables[table].endKey <= firstKey) return true;
  Statement query(database_.get(), ("SELECT count(*), sum(length(topic) + length(members)), min(key), max(key) + 1" +
                                    from + " WHERE key >= ?")
                                       .c_str());
  if (query.Bind(firstKey).Step() != SQLITE_ROW) return Failed();
  const auto records = static_cast<std::uint64_t>(query.Number(0));
  const std::uint64_t bytes = static_cast<std::uint64_t>(query.Number(1)) + records * kRecordOverhead;
  ring_.tables[table].bytes = bytes;
  const std::int64_t first = query.Number(2);
  const std::int64_t end = query.Number(3);
  const std::string time = "SELECT time" + from + " WHERE key = ";
  if (backlog.records == 0 || first < backlog.firstKey) {
    backlog.firstKey = first;
    if (!Number(time + std::to_string(first), backlog.fromMs)) return false;
  }
  if (end > backlog.endKey) {
    backlog.endKey = end;
    if (!Number(time + std::to_string(end - 1), backlog.toMs)) return false;
  }
  backlog.records += records;
  backlog.bytes += bytes;
  return true;
}

bool OutboxFile::ReadStreams(std::vector<Stream> &streams) {
  Statement query(database_.get(), "SELECT id, name FROM stream ORDER BY id");
  int result;
  while ((result = query.Step()) == SQLITE_ROW) streams.push_back({query.Number(0), std::string(query.Bytes(1))});
  return result == SQLITE_DONE || Failed();
}

bool OutboxFile::ReadState(std::optional<State> &state) {
  Statement query(database_.get(), "SELECT next, day_bytes, day_seconds, first_key FROM state");
  const int result = query.Step();
  if (result == SQLITE_DONE) return true;
  if (result != SQLITE_ROW) return Failed();
  const auto number = [&query](int column) { return static_cast<std::uint64_t>(query.Number(column)); };
  state = State{number(0), query.Number(3), {number(1), number(2)}};
  return true;
}

// From the oldest table, which is the one behind the newest.
bool OutboxFile::Read(std::int64_t first, std::int64_t end, const std::function<bool(KeptRecord)> &function) {
  for (std::size_t i = 1; i <= kTables; ++i) {
    const std::size_t table = (ring_.newest + i) % kTables;
    if (ring_.tables[table].endKey <= first) continue;
    const std::string sql = "SELECT key, time, topic, members FROM record" + std::to_string(table) +
                            " WHERE key >= ? AND key < ? ORDER BY key";
    Statement query(database_.get(), sql.c_str());
    query.Bind(first).Bind(end);
    int result;
    while ((result = query.Step()) == SQLITE_ROW) {
      if (!function(RecordOf(query))) return true;
    }
    if (result != SQLITE_DONE) return Failed();
  }
  return true;
}

void OutboxFile::UseTable(std::size_t table) {
  ring_.newest = table;
  put_.emplace(database_.get(),
               ("INSERT OR REPLACE INTO record" + std::to_string(table) + " VALUES (?, ?, ?, ?)").c_str());
}

bool OutboxFile::Begin() {
  before_ = ring_;
  return Run("BEGIN IMMEDIATE");
}

// A row that replaces another one stays in its table.
bool OutboxFile::Put(std::int64_t key, std::int64_t timeMs, std::string_view topic, std::string_view members) {
  const std::size_t next = (ring_.newest + 1) % kTables;
  const Table &newest = ring_.tables[ring_.newest];
  if (newest.bytes >= tableBytes_ && key >= newest.endKey && ring_.tables[next].endKey == 0) UseTable(next);
  Table &table = ring_.tables[ring_.newest];
  table.endKey = std::max(table.endKey, key + 1);
  table.bytes += topic.size() + members.size() + kRecordOverhead;
  return put_->Reset().Bind(key).Bind(timeMs).Bind(topic).Bind(members).Run() || Failed();
}

// Without a condition, only the list of unused pages is written.
bool OutboxFile::RemoveBefore(std::int64_t key) {
  for (std::size_t i = 0; i < kTables; ++i) {
    Table &table = ring_.tables[i];
    if (table.endKey == 0 || table.endKey > key) continue;
    if (!Run("DELETE FROM record" + std::to_string(i))) return false;
    table = {};
  }
  return true;
}

bool OutboxFile::SaveStream(const Stream &stream) {
  return Statement(database_.get(), "INSERT OR REPLACE INTO stream VALUES (?, ?)")
             .Bind(stream.id)
             .Bind(std::string_view{stream.name})
             .Run() ||
         Failed();
}

bool OutboxFile::RemoveStreamsBefore(std::int64_t id) {
  return Run("DELETE FROM stream WHERE id < " + std::to_string(id));
}

bool OutboxFile::SaveState(const State &state) {
  return Statement(database_.get(), "INSERT OR REPLACE INTO state VALUES (1, ?, ?, ?, ?)")
             .Bind(static_cast<std::int64_t>(state.next))
             .Bind(state.firstKey)
             .Bind(static_cast<std::int64_t>(state.day.bytes))
             .Bind(static_cast<std::int64_t>(state.day.seconds))
             .Run() ||
         Failed();
}

bool OutboxFile::Commit() {
  return Run("COMMIT");
}

// Some failures have ended it already.
void OutboxFile::Rollback() {
  put_->Reset();
  if (sqlite3_get_autocommit(database_.get()) == 0) {
    sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
  ring_ = before_;
  UseTable(ring_.newest);
}

bool OutboxFile::Checkpoint() {
  return Run("PRAGMA wal_checkpoint(TRUNCATE)");
}

bool OutboxFile::Shrink() {
  std::int64_t unused = 0;
  std::int64_t pages = 0;
  if (!Number("PRAGMA freelist_count", unused) || !Number("PRAGMA page_count", pages)) return false;
  if (unused < kShrinkUnused || pages - unused > kShrinkUsed) return true;
  const bool shrunk = Run("VACUUM") && Checkpoint();
  sqlite3_db_release_memory(database_.get());
  return shrunk;
}

}  // namespace zor::bridge
