#include "app/kivaapi/list_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/platform/file.h>

#include <cerrno>
#include <utility>

#include "base/unique_fd.h"

namespace zor {
namespace {

// Nobody else's: an old one that is in the way was left by a dead process of the same number.
int MakeFile(const char *path, mode_t mode) {
  ::unlink(path);
  return ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
}

bool Sync(int fd) {
  int result;
  do {
    result = ::fsync(fd);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace

// A platform whose reader takes no empty file must not turn an empty list into a failure.
std::uint32_t FileBytes::Read(const char *fixedPath) noexcept {
  const FixedPath path(fixedPath);
  struct stat status = {};
  if (::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0) return ZOR_FILE_OK;
  void *block = nullptr;
  const std::uint32_t result = ZOR_UTIL_ReadFileToBuf(path.c_str(), &block, &length_);
  block_.reset(static_cast<char *>(block));
  return result;
}

// The process id keeps two processes that replace the same file at once out of each other's way.
ReplacementFile::ReplacementFile(const char *fixedPath, mode_t mode) noexcept : target_(fixedPath) {
  std::snprintf(path_, sizeof path_, "%s.%d", target_.c_str(), ::getpid());
  if (!target_.valid()) return;
  UniqueFd fd(MakeFile(path_, mode));
  if (!fd.valid()) return;
  stream_ = ::fdopen(fd.get(), "wb");
  if (stream_ == nullptr) {
    ::unlink(path_);
    return;
  }
  static_cast<void>(fd.release());  // the stream's now
}

ReplacementFile::~ReplacementFile() {
  if (stream_ == nullptr) return;
  std::fclose(stream_);
  ::unlink(path_);
}

bool ReplacementFile::Close() noexcept {
  const bool written = std::fflush(stream_) == 0 && std::ferror(stream_) == 0 && Sync(::fileno(stream_));
  return std::fclose(std::exchange(stream_, nullptr)) == 0 && written;
}

bool ReplacementFile::Commit() noexcept {
  if (stream_ == nullptr) return false;
  if (Close() && ::rename(path_, target_.c_str()) == 0) return true;
  ::unlink(path_);
  return false;
}

}  // namespace zor
