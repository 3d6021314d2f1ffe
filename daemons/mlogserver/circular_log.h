// The circular file that the log lines end up in, written through the library's mlog_file_ functions.
#ifndef MLOGSERVER_CIRCULAR_LOG_H
#define MLOGSERVER_CIRCULAR_LOG_H

#include <zor/mlog.h>

#include <memory>
#include <string>
#include <string_view>

namespace zor::mlogserver {

class CircularLog {
 public:
  // Opens the file, ready to open as it stands, or makes it; its directory must exist. False when that fails.
  bool Open(const std::string &path);

  // Writes one line and, when it lacks one, its newline: lines that their sender had to cut come without. False when
  // the line is lost.
  bool Append(std::string_view line);
  // Makes what was written visible to readers. False, with errno, when the system refuses it.
  bool Flush();
  // The same, and returns only when it lies on the medium.
  bool Save();

 private:
  struct Destructor {
    void operator()(ZOR_MLOG_FILE *file) const { mlog_file_destructor(file); }
  };

  std::unique_ptr<ZOR_MLOG_FILE, Destructor> file_;
};

}  // namespace zor::mlogserver

#endif
