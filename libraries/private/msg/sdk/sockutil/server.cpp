// Bound sockets for servers: at an address, on a network device, or at a path.
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/zorutil.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/socket_address.h"
#include "common/unique_fd.h"
#include "sdk/sockutil/addrinfo.h"

namespace zor {
namespace {

constexpr unsigned kSocketGroup = 2591;
constexpr mode_t kSocketMode = 0660;
constexpr timeval kUdpReceiveTimeout = {2, 0};
constexpr int kOn = 1;

// The texts have no line end, so they are pushed out at once.
void Say(const char *text) {
  std::fputs(text, stdout);
  std::fflush(stdout);
}

std::int32_t BindFailed() {
  std::printf("bind failed, rc=%d errno=%d", -1, errno);
  std::fflush(stdout);
  return -1;
}

void OpenToGroup(const char *path) {
  char command[sizeof "chown :4294967295 " + sizeof(sockaddr_un::sun_path)];
  std::snprintf(command, sizeof command, "chown :%u %s", kSocketGroup, path);
  ZOR_UTIL_ExecCmdNoHang(command);
  if (::chmod(path, kSocketMode) != 0) Say("chmod for unixsock error.");
}

// A path of 108 bytes fills its field, and the kernel takes it without a NUL.
std::int32_t CreateLocalServer(const char *path) {
  if (path == nullptr || *path == '\0') return -1;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::size_t length = std::strlen(path);
  if (length > sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return BindFailed();
  }
  std::memcpy(address.sun_path, path, length);
  ::unlink(path);
  UniqueFd server(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!server.valid()) return -1;
  if (!Bind(server.get(), address)) return BindFailed();
  OpenToGroup(path);
  return server.release();
}

enum class For { kAll, kUdp, kIpv6, kIpv6Udp };

struct Option {
  int level;
  int option;
  For sockets;
  const char *failure;  // what is said before going on; null: the socket is given up
};

// Those by number may be missing in a kernel.
constexpr std::array kOptions = {
    Option{SOL_SOCKET, SO_REUSEADDR, For::kAll, nullptr},
    Option{IPPROTO_IP, 13, For::kAll, "\n===========set tos failed"},
    Option{IPPROTO_IP, 21, For::kAll, "\n===========set receive dev failed"},
    Option{IPPROTO_TCP, TCP_NODELAY, For::kAll, ""},
    Option{SOL_SOCKET, SO_RCVTIMEO, For::kUdp, "set udp timeout error"},
    Option{IPPROTO_IPV6, IPV6_V6ONLY, For::kIpv6, nullptr},
    Option{IPPROTO_IPV6, 66, For::kIpv6Udp, "\n===========set ipv6 traffic class failed"},
    Option{IPPROTO_IPV6, 97, For::kIpv6, "\n===========set ipv6 receive  dev failed"},
};

bool Concerns(For sockets, bool isIpv6, bool isUdp) {
  const bool needsIpv6 = sockets == For::kIpv6 || sockets == For::kIpv6Udp;
  const bool needsUdp = sockets == For::kUdp || sockets == For::kIpv6Udp;
  return (isIpv6 || !needsIpv6) && (isUdp || !needsUdp);
}

bool Set(int fd, const Option &each) {
  if (each.level == SOL_SOCKET && each.option == SO_RCVTIMEO) {
    return ::setsockopt(fd, each.level, each.option, &kUdpReceiveTimeout, sizeof kUdpReceiveTimeout) == 0;
  }
  return ::setsockopt(fd, each.level, each.option, &kOn, sizeof kOn) == 0;
}

bool SetOptions(int fd, bool isIpv6, bool isUdp) {
  for (const Option &each : kOptions) {
    if (!Concerns(each.sockets, isIpv6, isUdp) || Set(fd, each)) continue;
    if (each.failure == nullptr) return false;
    Say(each.failure);
  }
  return true;
}

void SetScope(sockaddr_in6 &address, bool isUdp, const char *ifname) {
  if (!isUdp && !IN6_IS_ADDR_LINKLOCAL(&address.sin6_addr)) return;
  address.sin6_scope_id = ::if_nametoindex(ifname == nullptr ? kDefaultInterface : ifname);
}

bool BindTo(int fd, const addrinfo &address) {
  int result;
  do {
    result = ::bind(fd, address.ai_addr, address.ai_addrlen);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

addrinfo *FirstOf(addrinfo *list, int family) {
  while (list != nullptr && list->ai_family != family) list = list->ai_next;
  return list;
}

// Binds to the device as well, unless that is null.
std::int32_t CreateAt(addrinfo &address, const char *device, bool isUdp, const char *ifname) {
  const bool isIpv6 = address.ai_family == AF_INET6;
  UniqueFd server(::socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol));
  if (!server.valid() || !SetOptions(server.get(), isIpv6, isUdp)) return -1;
  if (isIpv6) SetScope(*reinterpret_cast<sockaddr_in6 *>(address.ai_addr), isUdp, ifname);
  if (device != nullptr) {
    const auto size = static_cast<socklen_t>(std::strlen(device) + 1);
    ::setsockopt(server.get(), SOL_SOCKET, SO_BINDTODEVICE, device, size);
  }
  return BindTo(server.get(), address) ? server.release() : -1;
}

}  // namespace
}  // namespace zor

int32_t ZOR_UTIL_SocketCreateServer(const char *addressOrDevice, uint16_t port, uint32_t flags) {
  return ZOR_UTIL_SocketCreateServerEx(addressOrDevice, port, flags, nullptr);
}

// What is no address names a device.
int32_t ZOR_UTIL_SocketCreateServerEx(const char *addressOrDevice, uint16_t port, uint32_t flags, const char *ifname) {
  if ((flags & ZOR_ADDR_LOCAL) != 0) return zor::CreateLocalServer(addressOrDevice);
  const bool hasColon = addressOrDevice != nullptr && std::strchr(addressOrDevice, ':') != nullptr;
  if (hasColon) flags |= ZOR_ADDR_IPV6;
  const char *device = nullptr;
  zor::AddrInfoList list(ZOR_UTIL_ParseIPAddress(flags, addressOrDevice, port));
  if (list == nullptr) {
    if (addressOrDevice == nullptr) return -1;
    device = addressOrDevice;
    list.reset(ZOR_UTIL_ParseIPAddress(flags, nullptr, port));
  }
  addrinfo *address = zor::FirstOf(list.get(), (flags & ZOR_ADDR_IPV6) != 0 ? AF_INET6 : AF_INET);
  return address == nullptr ? -1 : zor::CreateAt(*address, device, (flags & ZOR_ADDR_UDP) != 0, ifname);
}
