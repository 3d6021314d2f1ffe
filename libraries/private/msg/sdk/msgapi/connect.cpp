#include "sdk/msgapi/connect.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <zor/limits.h>
#include <zor/paths.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "base/fixed_path.h"
#include "common/socket_address.h"

namespace zor {
namespace {

constexpr timeval kSlaveSendTimeout = {ZOR_MSG_REMOTE_SEND_WAIT_MS / 1000, ZOR_MSG_REMOTE_SEND_WAIT_MS % 1000 * 1000L};

// The server of the connection that was made last; empty: the local one.
constinit std::optional<sockaddr_in> remoteServer;

UniqueFd OpenSocket(int domain, int flags) {
  UniqueFd fd(::socket(domain, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
  const int on = 1;
  if (fd.valid()) ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  return fd;
}

bool ConnectToBoard(int fd, const sockaddr_in &address) {
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kSlaveSendTimeout, sizeof kSlaveSendTimeout);
  return Connect(fd, address);
}

bool ConnectToLocalServer(int fd) {
  const std::optional<sockaddr_un> address = FixedSocketAddress(ZOR_PATH_MSGSVR);
  return address && Connect(fd, *address);
}

void SetTcp(int fd, int option, unsigned value) {
  const int number = static_cast<int>(value);
  ::setsockopt(fd, IPPROTO_TCP, option, &number, sizeof number);
}

}  // namespace

UniqueFd ConnectLocal() noexcept {
  UniqueFd fd = OpenSocket(AF_UNIX, 0);
  if (!fd.valid() || !ConnectToLocalServer(fd.get())) return {};
  remoteServer.reset();
  return fd;
}

UniqueFd ConnectRemote(const char *ipv4Text, std::uint16_t port) noexcept {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (::inet_aton(ipv4Text, &address.sin_addr) == 0) return {};
  UniqueFd fd = OpenSocket(AF_INET, 0);
  if (!fd.valid() || !ConnectToBoard(fd.get(), address)) return {};
  remoteServer = address;
  return fd;
}

bool IsRemote() noexcept {
  return remoteServer.has_value();
}

UniqueFd ConnectAgain() noexcept {
  UniqueFd fd = OpenSocket(IsRemote() ? AF_INET : AF_UNIX, SOCK_NONBLOCK);
  if (!fd.valid()) return {};
  if (!IsRemote()) return ConnectToLocalServer(fd.get()) ? std::move(fd) : UniqueFd();
  EndWhenSilent(fd.get());
  return ConnectToBoard(fd.get(), *remoteServer) || errno == EINPROGRESS ? std::move(fd) : UniqueFd();
}

std::optional<bool> IsConnecting(int fd) noexcept {
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) return std::nullopt;
  sockaddr_storage peer;
  size = sizeof peer;
  return ::getpeername(fd, static_cast<sockaddr *>(static_cast<void *>(&peer)), &size) != 0;
}

void EndWhenSilent(int fd) noexcept {
  constexpr unsigned kSeconds = ZOR_MSG_REMOTE_SILENCE_MS / 1000;
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
  SetTcp(fd, TCP_KEEPIDLE, kSeconds / 2);
  SetTcp(fd, TCP_KEEPINTVL, 1);
  SetTcp(fd, TCP_KEEPCNT, kSeconds - kSeconds / 2);
  SetTcp(fd, TCP_USER_TIMEOUT, ZOR_MSG_REMOTE_SILENCE_MS);
}

}  // namespace zor
