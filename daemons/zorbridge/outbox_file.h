// The file of the queue: SQLite, with a write-ahead log.
//
// This process locks it for as long as it is open, which saves the shared index beside the log.
//
// Records are rows in the order of their keys, in a ring of tables. A group is appended to the newest table; the number
// of the last acknowledged record is saved, and a table goes as a whole when all of it is acknowledged. Removing single
// rows would write each page again, which doubles the wear of the flash. A file that has become nearly empty is made
// small again.
#ifndef ZORBRIDGE_OUTBOX_FILE_H
#define ZORBRIDGE_OUTBOX_FILE_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/sqlite_statement.h"
#include "zorbridge/daily_writes.h"
#include "zorbridge/record_window.h"

namespace zor::bridge {

struct Stream {
  std::int64_t id = 0;
  std::string name;
};

class OutboxFile {
 public:
  struct State {
    std::uint64_t next = 0;     // the number of the next record; 0: not stopped cleanly
    std::int64_t firstKey = 0;  // records before it are acknowledged
    DailyWrites::Saved day;
  };
  struct Content {
    RecordWindow::Hole backlog;   // without records it has its first key all the same
    std::vector<Stream> streams;  // the latest is the last one
    std::optional<State> state;   // nothing in a new file
  };

  OutboxFile() = default;
  OutboxFile(const OutboxFile &) = delete;
  OutboxFile &operator=(const OutboxFile &) = delete;
  ~OutboxFile() { Close(); }

  // Opens or creates it, and locks it. A table ends after so many bytes. This and the following return false after a
  // failure.
  bool Open(const std::string &path, std::uint64_t tableBytes);
  void Close();
  bool isOpen() const { return database_ != nullptr; }
  // Of the last failure: its text, and whether the file can never be used again.
  const std::string &problem() const { return problem_; }
  bool damaged() const { return damaged_; }

  // What it holds; reads all of it. Comes before the following.
  bool ReadContent(Content &content);
  // Records from key first to before end, until the function returns false.
  bool Read(std::int64_t first, std::int64_t end, const std::function<bool(KeptRecord)> &function);

  // A transaction. After a failure only Rollback ends it.
  bool Begin();
  bool Put(std::int64_t key, std::int64_t timeMs, std::string_view topic, std::string_view members);
  // The state has the same key.
  bool RemoveBefore(std::int64_t key);
  bool SaveStream(const Stream &stream);
  bool RemoveStreamsBefore(std::int64_t id);
  bool SaveState(const State &state);
  bool Commit();
  void Rollback();

  // Brings what has been committed from the log into the database.
  bool Checkpoint();
  // Gives pages back to the system when nearly all of them are unused.
  bool Shrink();

 private:
  bool Prepare();
  bool ReadTable(std::size_t table, std::int64_t firstKey, RecordWindow::Hole &backlog);
  void UseTable(std::size_t table);
  bool ReadStreams(std::vector<Stream> &streams);
  bool ReadState(std::optional<State> &state);
  bool Run(const std::string &sql);
  bool Number(const std::string &sql, std::int64_t &number);
  // Notes why the last call failed; false.
  bool Failed();

  static constexpr std::size_t kTables = 16;
  struct Table {
    std::int64_t endKey = 0;  // the one after its last; 0: it is empty
    std::uint64_t bytes = 0;
  };
  struct Ring {
    std::array<Table, kTables> tables;
    std::size_t newest = 0;
  };

  daemon::Database database_;  // outlives its statements
  std::optional<daemon::Statement> put_;
  Ring ring_;
  Ring before_;  // the transaction
  std::uint64_t tableBytes_ = 0;
  std::string problem_;
  bool damaged_ = false;
};

}  // namespace zor::bridge

#endif
