#include "programs/boards.h"

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>

namespace zor::daemon {
namespace {

void SetTcp(int socket, int option, long long value) {
  const int number = static_cast<int>(value);
  ::setsockopt(socket, IPPROTO_TCP, option, &number, sizeof number);
}

// The board is asked when it has been quiet for that long, and then once a second.
void AskAfter(int socket, long long quiet, long long silence) {
  SetTcp(socket, TCP_KEEPIDLE, quiet);
  SetTcp(socket, TCP_KEEPINTVL, 1);
  SetTcp(socket, TCP_KEEPCNT, std::max(2LL, silence - quiet));
  SetTcp(socket, TCP_USER_TIMEOUT, std::chrono::milliseconds(std::chrono::seconds(silence)).count());
}

}  // namespace

void SetUpBoard(int socket, std::chrono::seconds silence) {
  const int on = 1;
  SetTcp(socket, TCP_NODELAY, on);
  ::setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
  AskAfter(socket, std::max<long long>(1, silence.count() / 2), silence.count());
}

in_addr_t BoardAddress(int socket) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  const bool known = ::getpeername(socket, reinterpret_cast<sockaddr *>(&address), &size) == 0;
  return known && address.sin_family == AF_INET ? address.sin_addr.s_addr : 0;
}

bool IsSilent(int socket) {
  tcp_info info = {};
  socklen_t size = sizeof info;
  // An emulator may return less than the system.
  if (::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 || size < sizeof info) return false;
  return info.tcpi_state != TCP_ESTABLISHED || info.tcpi_retransmits > 0 || info.tcpi_probes > 0;
}

void Probe(int socket) {
  constexpr long long kSeconds = 3;
  AskAfter(socket, 1, kSeconds);
}

}  // namespace zor::daemon
