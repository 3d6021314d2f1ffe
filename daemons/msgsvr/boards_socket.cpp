#include "msgsvr/boards_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/socket_address.h"
#include "programs/local_address.h"
#include "programs/paths.h"

namespace zor::msgsvr {
namespace {

// The tunnel's user is in the group that the directory gives to its files.
constexpr mode_t kMode = 0660;

// Whether there is nothing, or a socket of a process that has ended.
bool IsFree(const sockaddr_un &address) {
  struct stat status = {};
  if (::lstat(address.sun_path, &status) != 0) return errno == ENOENT;
  const bool isFree = S_ISSOCK(status.st_mode) && !daemon::SomebodyListens(address, SOCK_STREAM);
  errno = EADDRINUSE;
  return isFree;
}

}  // namespace

UniqueFd ListenForTunnel(const std::string &fixedPath) {
  const auto address = daemon::LocalAddress(daemon::FixedPath(fixedPath));
  if (!address || !IsFree(*address)) return {};
  UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  ::unlink(address->sun_path);
  const bool listens = socket.valid() && Bind(socket.get(), *address) && ::chmod(address->sun_path, kMode) == 0 &&
                       ::listen(socket.get(), SOMAXCONN) == 0;
  return listens ? std::move(socket) : UniqueFd();
}

bool CanListenForTunnel(const std::string &fixedPath) {
  const auto address = daemon::LocalAddress(daemon::FixedPath(fixedPath));
  return address && IsFree(*address) && ::access(daemon::ParentOf(address->sun_path).c_str(), W_OK | X_OK) == 0;
}

bool ListensAt(int socket, const std::string &fixedPath) {
  const std::string path = daemon::FixedPath(fixedPath);
  struct stat status = {};
  return !path.empty() && daemon::PathOf(socket) == path && ::lstat(path.c_str(), &status) == 0 &&
         S_ISSOCK(status.st_mode);
}

}  // namespace zor::msgsvr
