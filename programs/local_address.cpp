#include "programs/local_address.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "common/socket_address.h"
#include "common/unique_fd.h"

namespace zor::daemon {

std::optional<sockaddr_un> LocalAddress(const std::string &path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return std::nullopt;
  }
  path.copy(address.sun_path, path.size());
  return address;
}

std::string PathOf(int socket) {
  sockaddr_un address = {};
  socklen_t length = sizeof address;
  if (socket < 0 || ::getsockname(socket, Generic(&address), &length) != 0 || address.sun_family != AF_UNIX) return {};
  constexpr size_t kBefore = offsetof(sockaddr_un, sun_path);
  return length <= kBefore ? "" : std::string(address.sun_path, ::strnlen(address.sun_path, length - kBefore));
}

// A full backlog (EAGAIN) or another type (EPROTOTYPE) is a living one too.
bool SomebodyListens(const sockaddr_un &address, int type) {
  const UniqueFd probe(::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return Connect(probe.get(), address) || (errno != ECONNREFUSED && errno != ENOENT);
}

}  // namespace zor::daemon
