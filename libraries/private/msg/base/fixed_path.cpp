#include "base/fixed_path.h"

#include <sys/socket.h>
#include <zor/platform/file.h>

namespace zor {

FixedPath::FixedPath(const char *path) noexcept {
  if (ZOR_UTIL_FixedPath(path, text_, sizeof text_) == 0) text_[0] = '\0';
}

std::optional<sockaddr_un> FixedSocketAddress(const char *path) noexcept {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (ZOR_UTIL_FixedPath(path, address.sun_path, sizeof address.sun_path) == 0) return std::nullopt;
  return address;
}

}  // namespace zor
