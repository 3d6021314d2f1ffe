// The log on disk: one SQLite file, which the sqlite3 shell can read while the daemon runs.
//
// Records are collected in an open transaction, because each commit costs a write to flash. Commit brings them to the
// medium: the daemon calls it on a flush request, at intervals, and before it replies to a sender that waits; the store
// itself does so after 64 records. Uncommitted records are lost if power fails, or if the medium is full; each failure
// is logged. A file that is not a database is set aside, so that a damaged log never stops the daemon.
#ifndef SYSLOGD_LOG_STORE_H
#define SYSLOGD_LOG_STORE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "programs/problem_log.h"
#include "programs/sqlite_statement.h"
#include "syslogd/log_record.h"

namespace zor::syslogd {

class LogStore {
 public:
  // Keeps the newest maxRecords.
  LogStore(std::uint32_t maxRecords, daemon::ProblemLog &problems) : maxRecords_(maxRecords), problems_(problems) {}
  LogStore(const LogStore &) = delete;
  LogStore &operator=(const LogStore &) = delete;
  ~LogStore() { Commit(); }

  // Opens or creates the file. This and the following log a failure of SQLite and return false.
  bool Open(const std::string &path);
  bool Append(const LogRecord &record);
  bool Commit();
  // Removes the records of these types.
  bool Clear(std::uint32_t types);

  // Returns the newest records that have one of the types and one of the levels, at most `count` of them (0: all),
  // oldest first. Nothing if they cannot be read.
  std::optional<std::vector<LogRecord>> Read(std::uint32_t typeLevel, std::uint32_t count);

  // Settings made by requests, persisted across restarts. The value of a name; empty if there is none.
  std::string Setting(const char *name);
  bool SetSetting(const char *name, const std::string &value);

 private:
  bool OpenFile(const std::string &path);
  bool Run(const char *sql);
  bool Begin();
  bool Report(const char *what);

  std::uint32_t maxRecords_;
  daemon::ProblemLog &problems_;
  daemon::Database database_;
  std::uint32_t uncommitted_ = 0;
};

}  // namespace zor::syslogd

#endif
