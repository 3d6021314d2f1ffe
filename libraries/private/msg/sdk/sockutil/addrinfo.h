// Owners of address lists, and the socket address in a node.
#ifndef SDK_SOCKUTIL_ADDRINFO_H
#define SDK_SOCKUTIL_ADDRINFO_H

#include <netdb.h>
#include <zor/socket.h>

#include <memory>

namespace zor {

struct AddrInfoDeleter {
  void operator()(addrinfo *list) const noexcept { ZOR_UTIL_FreeAddrInfo(list); }
};
using AddrInfoList = std::unique_ptr<addrinfo, AddrInfoDeleter>;

// The address as one of this type; null when the node has none that is long enough.
template <class Address>
const Address *AddressOf(const addrinfo &node) noexcept {
  if (node.ai_addr == nullptr || node.ai_addrlen < sizeof(Address)) return nullptr;
  return reinterpret_cast<const Address *>(node.ai_addr);
}

// The interface that counts when a caller names none.
constexpr char kDefaultInterface[] = "br0";

}  // namespace zor

#endif
