// Address lists that release themselves, and their texts.
#ifndef TESTS_SOCKUTIL_SOCKET_FIXTURE_H
#define TESTS_SOCKUTIL_SOCKET_FIXTURE_H

#include <netdb.h>
#include <netinet/in.h>

#include <string>

#include "sdk/sockutil/addrinfo.h"

namespace zor::test {

inline AddrInfoList Parse(const char *text, uint16_t port = 0, uint32_t flags = 0) {
  return AddrInfoList(ZOR_UTIL_ParseIPAddress(flags, text, port));
}

inline std::string TextOf(const sockaddr *address, socklen_t length) {
  char host[NI_MAXHOST] = "?";
  ::getnameinfo(address, length, host, sizeof host, nullptr, 0, NI_NUMERICHOST);
  return host;
}

// The addresses of a list, each followed by a blank.
inline std::string TextOf(const AddrInfoList &list) {
  std::string text;
  for (const addrinfo *node = list.get(); node != nullptr; node = node->ai_next) {
    text += TextOf(node->ai_addr, node->ai_addrlen) + ' ';
  }
  return text;
}

}  // namespace zor::test

#endif
