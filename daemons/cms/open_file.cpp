#include "cms/open_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace zor::cms {

OpenFile::OpenFile(const std::string &path)
    : file_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
  if (!file_.valid()) return;
  if (::fstat(file_.get(), &status_) == 0 && S_ISREG(status_.st_mode)) return;
  file_.reset();
  errno = EINVAL;
}

bool OpenFile::ReadStart(std::span<std::byte> room) const {
  return Read(room) == static_cast<ssize_t>(room.size());
}

bool OpenFile::ReadAll(size_t most, Secret *content) const {
  if (status_.st_size < 0 || static_cast<uint64_t>(status_.st_size) > most) return false;
  // One byte more than there should be, to notice a file that grows.
  Secret bytes(static_cast<size_t>(status_.st_size) + 1);
  const ssize_t length = Read(bytes);
  if (length < 0 || static_cast<size_t>(length) == bytes.size()) return false;
  bytes.resize(static_cast<size_t>(length));
  *content = std::move(bytes);
  return true;
}

ssize_t OpenFile::Read(std::span<std::byte> room) const {
  size_t length = 0;
  while (length < room.size()) {
    const ssize_t count = ::pread(file_.get(), &room[length], room.size() - length, static_cast<off_t>(length));
    if (count == 0) break;
    if (count < 0 && errno != EINTR) return -1;
    if (count > 0) length += static_cast<size_t>(count);
  }
  return static_cast<ssize_t>(length);
}

}  // namespace zor::cms
