#include "mlogserver/circular_log.h"

#include <unistd.h>

#include <cstdio>

namespace zor::mlogserver {

bool CircularLog::Open(const std::string &path) {
  file_.reset(mlog_file_constructor(path.c_str()));
  return file_ != nullptr;
}

bool CircularLog::Append(std::string_view line) {
  std::string text(line);
  if (!text.ends_with('\n')) text += '\n';
  return mlog_file_write(file_.get(), text.data(), static_cast<uint32_t>(text.size())) == 0;
}

bool CircularLog::Flush() {
  return std::fflush(file_->stream) == 0;
}

bool CircularLog::Save() {
  return Flush() && ::fsync(::fileno(file_->stream)) == 0;
}

}  // namespace zor::mlogserver
