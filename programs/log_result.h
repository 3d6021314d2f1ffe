// The file in which the log daemon writes the result of a query.
#ifndef PROGRAMS_LOG_RESULT_H
#define PROGRAMS_LOG_RESULT_H

#include <zor/log_wire.h>

#include <cstddef>
#include <optional>
#include <string>

namespace zor::daemon {

// It is removed with the object. The daemon may still write one that it was too late with: that is removed with one of
// the next.
class LogResult {
 public:
  // DIRECTORY/PROGRAM.PROCESS.NUMBER; `directory` is a fixed path.
  LogResult(const std::string &directory, const char *program);
  LogResult(const LogResult &) = delete;
  LogResult &operator=(const LogResult &) = delete;
  ~LogResult();

  // Where it really is.
  const std::string &path() const { return path_; }
  // Tells the daemon where to write. False when the name is too long for a query.
  bool NameIn(ZOR_LOG_QUERY &query) const;
  // Call it when the daemon has not replied in time.
  void GiveUp() const;
  // What the daemon has written; nothing, with errno, if that cannot be read or is longer. Others may write into the
  // directory too: what they put there leads to no other file and is not read without end.
  std::optional<std::string> Text(std::size_t most) const;

 private:
  std::string fixedPath_;
  std::string path_;
};

}  // namespace zor::daemon

#endif
