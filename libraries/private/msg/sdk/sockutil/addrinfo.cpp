#include "sdk/sockutil/addrinfo.h"

#include <netinet/in.h>

#include <cstddef>
#include <cstring>

#include "base/alloc.h"
#include "sdk/sockutil/port_text.h"

namespace zor {
namespace {

// Where family and port end, in the addresses of both families.
constexpr std::size_t kAddressOffset = 4;
constexpr std::size_t kIpv4Padding = 8;
constexpr std::size_t kShortestCompared = 12;

// A node with room for an address behind it: freeaddrinfo releases a node as one block.
AddrInfoList NewNode(const void *address, std::uint32_t length) {
  AddrInfoList node(static_cast<addrinfo *>(GuardedCalloc(std::uint64_t{sizeof(addrinfo)} + length)));
  if (node == nullptr) return node;
  node->ai_addrlen = length;
  node->ai_addr = reinterpret_cast<sockaddr *>(node.get() + 1);
  std::memcpy(node->ai_addr, address, length);
  return node;
}

AddrInfoList CopyNode(const addrinfo &source) {
  AddrInfoList copy = source.ai_addr == nullptr ? NewNode("", 0) : NewNode(source.ai_addr, source.ai_addrlen);
  if (copy == nullptr) return copy;
  sockaddr *const address = source.ai_addr == nullptr ? nullptr : copy->ai_addr;
  *copy = source;
  copy->ai_addr = address;
  copy->ai_canonname = nullptr;  // would be released with both lists
  copy->ai_next = nullptr;
  return copy;
}

// How many bytes behind the port count. An IPv4 address ends in padding, unless the record was cut before it.
std::size_t ComparedLength(const addrinfo &node) {
  const std::size_t length = node.ai_addrlen - kAddressOffset;
  const bool isPadded = node.ai_family == AF_INET && node.ai_addrlen >= sizeof(sockaddr_in);
  return isPadded ? length - kIpv4Padding : length;
}

const unsigned char *BytesOf(const addrinfo &node) {
  return reinterpret_cast<const unsigned char *>(node.ai_addr);
}

}  // namespace
}  // namespace zor

struct addrinfo *ZOR_UTIL_ParseIPAddress(uint32_t flags, const char *host, uint16_t port) {
  addrinfo hints = {};
  hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST;
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = (flags & ZOR_ADDR_UDP) != 0 ? SOCK_DGRAM : SOCK_STREAM;
  addrinfo *list = nullptr;
  return ::getaddrinfo(host, zor::PortText(port).c_str(), &hints, &list) == 0 ? list : nullptr;
}

void ZOR_UTIL_FreeAddrInfo(struct addrinfo *list) {
  if (list != nullptr) ::freeaddrinfo(list);
}

struct addrinfo *ZOR_UTIL_MakeAddrInfo(uint32_t flags, const void *address, uint32_t addressLength) {
  if (address == nullptr) return nullptr;
  zor::AddrInfoList node = zor::NewNode(address, addressLength);
  if (node == nullptr) return nullptr;
  node->ai_family = (flags & ZOR_ADDR_IPV6) != 0 ? AF_INET6 : AF_INET;
  node->ai_socktype = (flags & ZOR_ADDR_UDP) != 0 ? SOCK_DGRAM : SOCK_STREAM;
  return node.release();
}

struct addrinfo *ZOR_UTIL_CopyAddrInfo(const struct addrinfo *list, uint32_t all) {
  if (list == nullptr) return nullptr;
  zor::AddrInfoList copy = zor::CopyNode(*list);
  if (copy == nullptr || all == 0) return copy.release();
  addrinfo *last = copy.get();
  for (const addrinfo *node = list->ai_next; node != nullptr; node = node->ai_next) {
    last->ai_next = zor::CopyNode(*node).release();
    last = last->ai_next;
    if (last == nullptr) return nullptr;
  }
  return copy.release();
}

uint32_t ZOR_UTIL_IsAddrInfoSame(const struct addrinfo *a, const struct addrinfo *b) {
  if (a == nullptr || b == nullptr || a->ai_addr == nullptr || b->ai_addr == nullptr) return 0;
  if (a->ai_addrlen != b->ai_addrlen || a->ai_addrlen < zor::kShortestCompared) return 0;
  const unsigned char *first = zor::BytesOf(*a) + zor::kAddressOffset;
  const unsigned char *second = zor::BytesOf(*b) + zor::kAddressOffset;
  return std::memcmp(first, second, zor::ComparedLength(*b)) == 0 ? 1 : 0;
}

uint32_t ZOR_UTIL_IsAddrLoopback(const struct addrinfo *address) {
  if (address == nullptr) return 0;
  if (address->ai_family == AF_INET) {
    const auto *ipv4 = zor::AddressOf<sockaddr_in>(*address);
    return ipv4 != nullptr && ipv4->sin_addr.s_addr == htonl(INADDR_LOOPBACK) ? 1 : 0;
  }
  if (address->ai_family != AF_INET6) return 0;
  const auto *ipv6 = zor::AddressOf<sockaddr_in6>(*address);
  return ipv6 != nullptr && IN6_IS_ADDR_LOOPBACK(&ipv6->sin6_addr) ? 1 : 0;
}
