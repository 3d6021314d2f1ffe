// The circular file that stores the log lines, written through the library's mlog_file_ functions.
#ifndef MLOGSERVER_CIRCULAR_LOG_H
#define MLOGSERVER_CIRCULAR_LOG_H

#include <zor/mlog.h>

#include <memory>
#include <string>
#include <string_view>

namespace zor::mlogserver {

class CircularLog {
 public:
  // Opens or creates the file at a real path; its directory must exist. False on failure.
  bool Open(const std::string &path);

  // Writes one line, which ends in a newline. False if the line is lost.
  bool Append(std::string_view line);
  // Makes the written lines visible to readers. False, with errno, on failure.
  bool Flush();
  // The same, and waits until the lines are on the medium, if any were written since the last time.
  bool Save();

 private:
  struct Destructor {
    void operator()(ZOR_MLOG_FILE *file) const { mlog_file_destructor(file); }
  };

  std::unique_ptr<ZOR_MLOG_FILE, Destructor> file_;
  bool saved_ = false;
};

}  // namespace zor::mlogserver

#endif
