#include "sdk/msgapi/connect.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <zor/limits.h>
#include <zor/paths.h>

#include <optional>
#include <utility>

#include "base/fixed_path.h"
#include "common/socket_address.h"

namespace zor {
namespace {

constexpr timeval kSlaveSendTimeout = {ZOR_MSG_REMOTE_SEND_WAIT_MS / 1000, ZOR_MSG_REMOTE_SEND_WAIT_MS % 1000 * 1000L};

UniqueFd OpenSocket(int domain, int flags) {
  UniqueFd fd(::socket(domain, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
  const int on = 1;
  if (fd.valid()) ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  return fd;
}

}  // namespace

UniqueFd ConnectLocal(int flags) noexcept {
  UniqueFd fd = OpenSocket(AF_UNIX, flags);
  const std::optional<sockaddr_un> address = FixedSocketAddress(ZOR_PATH_MSGSVR);
  return fd.valid() && address && Connect(fd.get(), *address) ? std::move(fd) : UniqueFd();
}

UniqueFd ConnectRemote(const char *ipv4Text, std::uint16_t port) noexcept {
  UniqueFd fd = OpenSocket(AF_INET, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (!fd.valid() || ::inet_aton(ipv4Text, &address.sin_addr) == 0) return UniqueFd();
  ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &kSlaveSendTimeout, sizeof kSlaveSendTimeout);
  return Connect(fd.get(), address) ? std::move(fd) : UniqueFd();
}

}  // namespace zor
