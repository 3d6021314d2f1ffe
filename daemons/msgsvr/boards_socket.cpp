#include "msgsvr/boards_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>

#include "common/socket_address.h"
#include "programs/paths.h"

namespace zor::msgsvr {
namespace {

// The tunnel's user is in the group that the directory gives to its files.
constexpr mode_t kMode = 0660;

std::optional<sockaddr_un> AddressOf(const std::string &fixedPath) {
  const std::string path = daemon::FixedPath(fixedPath);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return std::nullopt;
  }
  path.copy(address.sun_path, path.size());
  return address;
}

// Whether there is nothing, or a socket of a process that has ended.
bool IsFree(const sockaddr_un &address) {
  struct stat status = {};
  if (::lstat(address.sun_path, &status) != 0) return errno == ENOENT;
  errno = EADDRINUSE;
  if (!S_ISSOCK(status.st_mode)) return false;
  const UniqueFd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!Connect(probe.get(), address) && errno == ECONNREFUSED) return true;
  errno = EADDRINUSE;
  return false;
}

}  // namespace

UniqueFd ListenForTunnel(const std::string &fixedPath) {
  const auto address = AddressOf(fixedPath);
  if (!address || !IsFree(*address)) return {};
  UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  ::unlink(address->sun_path);
  const bool listens = socket.valid() && Bind(socket.get(), *address) && ::chmod(address->sun_path, kMode) == 0 &&
                       ::listen(socket.get(), SOMAXCONN) == 0;
  return listens ? std::move(socket) : UniqueFd();
}

bool CanListenForTunnel(const std::string &fixedPath) {
  const auto address = AddressOf(fixedPath);
  return address && IsFree(*address) && ::access(daemon::ParentOf(address->sun_path).c_str(), W_OK | X_OK) == 0;
}

bool ListensAt(int socket, const std::string &fixedPath) {
  const auto wanted = AddressOf(fixedPath);
  sockaddr_un address = {};
  socklen_t length = sizeof address;
  struct stat status = {};
  if (!wanted || ::getsockname(socket, Generic(&address), &length) != 0 || address.sun_family != AF_UNIX) return false;
  return ::strncmp(wanted->sun_path, address.sun_path, sizeof address.sun_path) == 0 &&
         ::lstat(wanted->sun_path, &status) == 0 && S_ISSOCK(status.st_mode);
}

}  // namespace zor::msgsvr
