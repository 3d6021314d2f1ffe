#include "notifyclient/notify_connect.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/paths.h>
#include <zor/platform/file.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/fixed_path.h"
#include "common/socket_address.h"

namespace zor::notify {
namespace {

bool SetBlocking(int fd, bool on) {
  const int flags = ::fcntl(fd, F_GETFL);
  return flags >= 0 && ::fcntl(fd, F_SETFL, on ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) == 0;
}

}  // namespace

UniqueFd BoundSocket() noexcept {
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) return {};
  const int on = 1;
  if (::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return {};
  char path[64];
  std::snprintf(path, sizeof path, ZOR_PATH_NOTIFY_DIR "/client%05d", ::getpid());
  const auto address = FixedSocketAddress(path);
  if (!address) return {};
  ::unlink(address->sun_path);
  if (!Bind(fd.get(), *address)) return {};
  ZOR_UTIL_RemoveAndroidWPerm(address->sun_path, "775");
  return fd;
}

bool ConnectToServer(int fd) noexcept {
  const auto address = FixedSocketAddress(ZOR_PATH_NOTIFY_SERVER);
  if (!address) {
    errno = ENAMETOOLONG;
    return false;
  }
  return Connect(fd, *address);
}

UniqueFd ConnectAtOnce() noexcept {
  UniqueFd fd = BoundSocket();
  const bool connected =
      fd.valid() && SetBlocking(fd.get(), false) && ConnectToServer(fd.get()) && SetBlocking(fd.get(), true);
  return connected ? std::move(fd) : UniqueFd();
}

}  // namespace zor::notify
