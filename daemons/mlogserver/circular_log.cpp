#include "mlogserver/circular_log.h"

#include <unistd.h>

#include <cstdio>

namespace zor::mlogserver {

bool CircularLog::Open(const std::string &path) {
  file_.reset(mlog_file_constructor(path.c_str()));
  return file_ != nullptr;
}

bool CircularLog::Append(std::string_view line) {
  saved_ = false;
  return mlog_file_write(file_.get(), line.data(), static_cast<uint32_t>(line.size())) == 0;
}

bool CircularLog::Flush() {
  return std::fflush(file_->stream) == 0;
}

bool CircularLog::Save() {
  // Any client may ask for it, but not wear out the medium.
  saved_ = saved_ || (Flush() && ::fsync(::fileno(file_->stream)) == 0);
  return saved_;
}

}  // namespace zor::mlogserver
