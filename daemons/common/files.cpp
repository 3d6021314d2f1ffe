#include "common/files.h"

#include <unistd.h>

#include <cerrno>

namespace zor::daemon {

bool WriteAll(int file, std::span<const std::byte> content) {
  while (!content.empty()) {
    const ssize_t count = ::write(file, content.data(), content.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) content = content.subspan(static_cast<size_t>(count));
  }
  return true;
}

}  // namespace zor::daemon
