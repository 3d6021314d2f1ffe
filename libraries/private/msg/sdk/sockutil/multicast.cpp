// Multicast set-up of a socket.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <zor/status.h>

#include "sdk/sockutil/addrinfo.h"

namespace zor {
namespace {

std::uint32_t JoinIpv4(int fd, const char *group, const sockaddr_in &local) {
  ip_mreq request = {};
  if (::inet_aton(group, &request.imr_multiaddr) == 0) return ZOR_E_ARGUMENT;
  request.imr_interface = local.sin_addr;
  if (::setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) != 0) return ZOR_E_IO;
  ::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &local.sin_addr, sizeof local.sin_addr);
  return ZOR_OK;
}

// A failure is not reported: a group that is no address becomes the unspecified one, which the kernel refuses.
void JoinIpv6(int fd, const char *group, const char *ifname) {
  ipv6_mreq request = {};
  ::inet_pton(AF_INET6, group, &request.ipv6mr_multiaddr);
  request.ipv6mr_interface = ::if_nametoindex(ifname == nullptr ? kDefaultInterface : ifname);
  ::setsockopt(fd, IPPROTO_IPV6, IPV6_JOIN_GROUP, &request, sizeof request);
}

std::uint32_t Join(int fd, const char *group, const addrinfo &local, const char *ifname) {
  if (local.ai_family == AF_INET6) {
    JoinIpv6(fd, group, ifname);
    return ZOR_OK;
  }
  const auto *address = local.ai_family == AF_INET ? AddressOf<sockaddr_in>(local) : nullptr;
  return address == nullptr ? ZOR_E_ARGUMENT : JoinIpv4(fd, group, *address);
}

}  // namespace
}  // namespace zor

uint32_t ZOR_UTIL_SocketSetTTL(int32_t fd, uint8_t ttl) {
  if (fd == -1) return ZOR_E_ARGUMENT;
  return static_cast<uint32_t>(::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl));
}

uint32_t ZOR_UTIL_SocketSetMcastIf(void) {
  return ZOR_OK;
}

uint32_t ZOR_UTIL_SocketJoinMcastEx(int32_t fd, const char *group, const struct addrinfo *local, const char *ifname) {
  if (fd == -1 || group == nullptr || local == nullptr) return ZOR_E_ARGUMENT;
  const uint32_t status = zor::Join(fd, group, *local, ifname);
  if (status != ZOR_OK) return status;
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  return ZOR_OK;
}

uint32_t ZOR_UTIL_SocketJoinMcast(int32_t fd, const char *group, const struct addrinfo *local) {
  return ZOR_UTIL_SocketJoinMcastEx(fd, group, local, zor::kDefaultInterface);
}
