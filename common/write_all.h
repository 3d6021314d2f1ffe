// Writes all of a buffer to a file.
#ifndef COMMON_WRITE_ALL_H
#define COMMON_WRITE_ALL_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <span>

namespace zor {

// False, with errno, when not all of it could be written.
inline bool WriteAll(int fd, std::span<const std::byte> content) noexcept {
  while (!content.empty()) {
    const ssize_t count = ::write(fd, content.data(), content.size());
    if (count == 0) errno = ENOSPC;
    if (count == 0 || (count < 0 && errno != EINTR)) return false;
    if (count > 0) content = content.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace zor

#endif
