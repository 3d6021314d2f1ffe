// Names of reverse look-ups: the input is a name.
#include <arpa/inet.h>
#include <zor/dns.h>

#include "fuzz.h"

using zor::fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string name = zor::fuzz::TextOf(data, size);
  for (const uint32_t capacity : {64u, 16u, 1u}) {
    std::vector<char> address(capacity, '\0');
    uint32_t isIpv4 = 2;
    if (ZOR_DNS_PacketPTRName2Addr(name.c_str(), address.data(), capacity, &isIpv4) != ZOR_DNS_OK) continue;
    in6_addr binary;
    Require(::inet_pton(isIpv4 == 1 ? AF_INET : AF_INET6, address.data(), &binary) == 1, "an address is one");
  }
  return 0;
}
