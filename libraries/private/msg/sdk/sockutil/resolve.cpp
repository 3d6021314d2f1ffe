// Name resolution: a hook of the daemon's, or the system's resolver with the device's preference for IPv6.
#include <arpa/inet.h>
#include <zor/platform/config.h>
#include <zor/platform/system.h>
#include <zor/status.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "sdk/sockutil/addrinfo.h"
#include "sdk/sockutil/port_text.h"

namespace zor {
namespace {

ZOR_NAME_RESOLVE_FUNC resolveHook = nullptr;

// For one scope: the resolver may need what an unprivileged process cannot read.
class RaisedPrivileges {
 public:
  RaisedPrivileges() noexcept {
    if (ZOR_UTIL_UpRootPrivileges() == 0) return;
    std::printf("[spdn]ZOR_UTIL_UpRootPrivileges failed");
    std::fflush(stdout);
  }
  ~RaisedPrivileges() { ZOR_UTIL_DropAndroidRootPrivileges(); }
  RaisedPrivileges(const RaisedPrivileges &) = delete;
  RaisedPrivileges &operator=(const RaisedPrivileges &) = delete;
};

bool WantsIpv6(const char *host) {
  std::uint32_t enabled = 0;
  ZOR_DBGetPara(ZOR_PARA_IPV6_ENABLED, 0, &enabled, sizeof enabled);
  in_addr literal;
  return enabled == 1 && ::inet_pton(AF_INET, host, &literal) != 1;
}

class Lookup {
 public:
  Lookup(const char *host, std::uint16_t port) noexcept : host_(host), port_(port) {}

  // The addresses of one family, null on failure.
  AddrInfoList Resolve(int family) const noexcept {
    addrinfo *list = nullptr;
    if (!Try(family, list)) return nullptr;
    return AddrInfoList(list);
  }

 private:
  // errno is cleared first, or an error of long ago would look like a passing one.
  bool Try(int family, addrinfo *&list) const noexcept {
    addrinfo hints = {};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    for (bool again = true;; again = false) {
      errno = 0;
      const int result = ::getaddrinfo(host_, port_.c_str(), &hints, &list);
      if (result == 0) return true;
      const bool passing = result == EAI_AGAIN || errno == EINTR || errno == EAGAIN;
      if (!again || !passing) return false;
    }
  }

  const char *const host_;
  const PortText port_;
};

void Append(AddrInfoList &list, AddrInfoList tail) {
  if (list == nullptr) {
    list = std::move(tail);
    return;
  }
  addrinfo *last = list.get();
  while (last->ai_next != nullptr) last = last->ai_next;
  last->ai_next = tail.release();
}

}  // namespace
}  // namespace zor

void ZOR_UTIL_RegNameResolveFunc(ZOR_NAME_RESOLVE_FUNC resolve) {
  zor::resolveHook = resolve;
}

uint32_t ZOR_UTIL_GetIpAddresses(const char *host, const struct addrinfo *hint, uint16_t port,
                                 struct addrinfo **outList) {
  if (host == nullptr || outList == nullptr) return ZOR_E_ARGUMENT;
  *outList = nullptr;
  if (zor::resolveHook != nullptr) return zor::resolveHook(host, hint, port, outList);
  const zor::Lookup lookup(host, port);
  const bool wantsIpv6 = zor::WantsIpv6(host);
  const zor::RaisedPrivileges raised;
  zor::AddrInfoList list = wantsIpv6 ? lookup.Resolve(AF_INET6) : nullptr;
  zor::AddrInfoList ipv4 = lookup.Resolve(AF_INET);
  // IPv6 addresses alone are handed out with a failure: the status is that of the last lookup.
  const uint32_t status = ipv4 == nullptr ? ZOR_E_IO : ZOR_OK;
  zor::Append(list, std::move(ipv4));
  *outList = list.release();
  return status;
}
