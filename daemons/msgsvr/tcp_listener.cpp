#include "msgsvr/tcp_listener.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>

#include "common/socket_address.h"
#include "programs/settings.h"

namespace zor::msgsvr {
namespace {

std::string Format(const sockaddr_in &address) {
  char text[INET_ADDRSTRLEN];
  return std::string(::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text)) + ':' +
         std::to_string(ntohs(address.sin_port));
}

}  // namespace

std::optional<sockaddr_in> ParseTcpAddress(const std::string &text) {
  const size_t colon = text.rfind(':');
  uint64_t port;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  if (colon == text.npos || !daemon::ParseNumber(text.substr(colon + 1), &port) || port > 65535 ||
      ::inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr) != 1) {
    return std::nullopt;
  }
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

TcpListener ListenTcp(const std::string &text) {
  const auto wanted = ParseTcpAddress(text);
  if (!wanted) {
    errno = EINVAL;
    return {};
  }
  UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_in address = *wanted;
  sockaddr *generic = Generic(&address);
  socklen_t size = sizeof address;
  const int on = 1;
  if (!socket.valid() || ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(socket.get(), generic, size) != 0 || ::listen(socket.get(), SOMAXCONN) != 0 ||
      ::getsockname(socket.get(), generic, &size) != 0) {
    return {};
  }
  return {std::move(socket), Format(address)};
}

}  // namespace zor::msgsvr
