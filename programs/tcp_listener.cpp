#include "programs/tcp_listener.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>

#include "common/socket_address.h"
#include "programs/settings.h"

namespace zor::daemon {
namespace {

// The address that it is bound to.
std::optional<sockaddr_in> AddressOf(int socket) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  if (::getsockname(socket, Generic(&address), &size) != 0 || address.sin_family != AF_INET) return std::nullopt;
  return address;
}

UniqueFd BindTcp(const std::string &text) {
  auto address = ParseTcpAddress(text);
  if (!address) {
    errno = EINVAL;
    return {};
  }
  UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  const bool bound = socket.valid() && ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                     ::bind(socket.get(), Generic(&*address), sizeof *address) == 0;
  return bound ? std::move(socket) : UniqueFd();
}

}  // namespace

std::optional<sockaddr_in> ParseTcpAddress(const std::string &text) {
  const size_t colon = text.rfind(':');
  uint64_t port;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  if (colon == text.npos || !ParseNumber(text.substr(colon + 1), &port) || port > 65535 ||
      ::inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr) != 1) {
    return std::nullopt;
  }
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

bool IsLoopback(const sockaddr_in &address) {
  return ntohl(address.sin_addr.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
}

std::string TextOf(const sockaddr_in &address) {
  char text[INET_ADDRSTRLEN];
  return std::string(::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text)) + ':' +
         std::to_string(ntohs(address.sin_port));
}

bool CanListenTcp(const std::string &text) {
  return BindTcp(text).valid();
}

bool ListensAt(int socket, const std::string &text) {
  const auto wanted = ParseTcpAddress(text);
  const auto actual = AddressOf(socket);
  return wanted && actual && wanted->sin_addr.s_addr == actual->sin_addr.s_addr &&
         (wanted->sin_port == 0 || wanted->sin_port == actual->sin_port);
}

TcpListener AdoptTcp(UniqueFd socket) {
  const auto address = AddressOf(socket.get());
  return {std::move(socket), address ? TextOf(*address) : ""};
}

TcpListener ListenTcp(const std::string &text) {
  UniqueFd socket = BindTcp(text);
  if (!socket.valid() || ::listen(socket.get(), SOMAXCONN) != 0) return {};
  return AdoptTcp(std::move(socket));
}

}  // namespace zor::daemon
