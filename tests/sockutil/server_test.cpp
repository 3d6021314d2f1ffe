#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/zorutil.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "base/unique_fd.h"
#include "sockutil/socket_fixture.h"
#include "support/capture.h"
#include "support/temp_root.h"

static sockaddr_in6 boundTo;

// Sees the address, and is interrupted at the first attempt for each.
int bind(int fd, const sockaddr *address, socklen_t length) {
  const auto real = reinterpret_cast<decltype(&bind)>(::dlsym(RTLD_NEXT, __func__));
  if (address->sa_family == AF_UNIX || std::memcmp(&boundTo, address, length) == 0) return real(fd, address, length);
  std::memcpy(&boundTo, address, length);
  errno = EINTR;
  return -1;
}

namespace zor::test {
namespace {

int Get(int fd, int level, int option) {
  int value = -1;
  socklen_t size = sizeof value;
  ::getsockopt(fd, level, option, &value, &size);
  return value;
}

// The address of a socket, and the device to which it is bound.
std::string PlaceOf(int fd) {
  sockaddr_storage name = {};
  socklen_t size = sizeof name;
  if (::getsockname(fd, reinterpret_cast<sockaddr *>(&name), &size) != 0) return "none";
  char device[IFNAMSIZ] = {};
  socklen_t deviceSize = sizeof device;
  ::getsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, device, &deviceSize);
  return TextOf(reinterpret_cast<sockaddr *>(&name), size) + ' ' + device;
}

TEST(Server, IsBoundToAnAddressOrADeviceWithItsOptionsSet) {
  const uint32_t lo = ::if_nametoindex("lo");
  const struct {
    const char *where;
    uint32_t flags;
    const char *place;
    uint32_t scope;
  } cases[] = {
      {"127.0.0.1", 0, "127.0.0.1 ", 0},
      {"127.0.0.1", ZOR_ADDR_UDP, "127.0.0.1 ", 0},
      {"::1", 0, "::1 ", 0},
      {"::1", ZOR_ADDR_UDP, "::1 ", lo},
      {nullptr, 0, "0.0.0.0 ", 0},
      {nullptr, ZOR_ADDR_IPV6, ":: ", 0},
      {"lo", 0, "0.0.0.0 lo", 0},
      {"lo", ZOR_ADDR_UDP | ZOR_ADDR_IPV6, ":: lo", lo},
      {"no device", 0, "0.0.0.0 ", 0},
      {"a name that no device can have", 0, "0.0.0.0 ", 0},
      {"192.0.2.1", 0, "none", 0},
      {"fe80::1", 0, "none", lo},
  };
  for (const auto &each : cases) {
    Capture output;
    boundTo = {};
    const UniqueFd server(ZOR_UTIL_SocketCreateServerEx(each.where, 0, each.flags, "lo"));
    EXPECT_EQ(PlaceOf(server.get()), each.place);
    EXPECT_EQ(boundTo.sin6_scope_id, each.scope) << each.place;
    if (!server.valid()) continue;
    const bool isUdp = (each.flags & ZOR_ADDR_UDP) != 0;
    const bool isIpv6 = each.place[0] == ':';
    const struct {
      int level, option, value;
      bool wanted;
    } options[] = {
        {SOL_SOCKET, SO_TYPE, isUdp ? SOCK_DGRAM : SOCK_STREAM, true},
        {SOL_SOCKET, SO_REUSEADDR, 1, true},
        {SOL_SOCKET, SO_RCVTIMEO, isUdp ? 2 : 0, true},  // its seconds come first
        {IPPROTO_TCP, TCP_NODELAY, 1, !isUdp},
        {IPPROTO_IP, IP_RECVTOS, 1, !isIpv6},
        {IPPROTO_IPV6, IPV6_V6ONLY, 1, isIpv6},
        {IPPROTO_IPV6, IPV6_RECVTCLASS, 1, isIpv6 && isUdp},
    };
    for (const auto &option : options) {
      EXPECT_TRUE(!option.wanted || Get(server.get(), option.level, option.option) == option.value) << option.option;
    }
    EXPECT_EQ(::fcntl(server.get(), F_GETFD), FD_CLOEXEC);
    // The host's kernel has no such option.
    EXPECT_EQ(output.Text().find("\n===========set ipv6 receive  dev failed") != std::string::npos, isIpv6);
  }
}

TEST(Server, PortsInUseAreRefusedAndSeen) {
  Capture output;
  const UniqueFd server(ZOR_UTIL_SocketCreateServer("127.0.0.1", 0, 0));
  sockaddr_in name = {};
  socklen_t size = sizeof name;
  ASSERT_EQ(::getsockname(server.get(), reinterpret_cast<sockaddr *>(&name), &size), 0);
  const uint16_t port = ntohs(name.sin_port);
  EXPECT_EQ(ZOR_UTIL_CheckTCPPortInUse(port), 0u) << "bound, but nobody listens";
  ASSERT_EQ(::listen(server.get(), 1), 0);
  EXPECT_EQ(ZOR_UTIL_CheckTCPPortInUse(port), 1u);
  EXPECT_THAT(output.Text(), testing::HasSubstr(std::to_string(::getpid()) + " msgapi parse tcpfile failed!\n"));
  EXPECT_EQ(ZOR_UTIL_SocketCreateServer("127.0.0.1", port, 0), -1);
}

TEST(LocalServer, ReplacesWhatIsAtItsPathAndOpensItToItsGroup) {
  const TempRoot root;
  const std::string record = root.Path("/record");
  ZOR_EXEC_CTX context = {ZOR_EXEC_RECORD, record.c_str()};
  g_pstExecCtx = &context;
  const std::string tooLong = "bind failed, rc=-1 errno=" + std::to_string(ENAMETOOLONG);
  const struct {
    size_t length;
    mode_t type;
    std::string output;
  } cases[] = {{107, S_IFSOCK, ""}, {108, S_IFSOCK, ""}, {109, S_IFREG, tooLong}, {200, S_IFREG, tooLong}};
  std::string commands;
  for (const auto &each : cases) {
    std::string path = root.Path("/");
    path += std::string(each.length - path.size(), 's');
    std::ofstream(path) << "in the way";
    Capture output;
    const UniqueFd server(ZOR_UTIL_SocketCreateServer(path.c_str(), 0, ZOR_ADDR_LOCAL));
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & S_IFMT, each.type);
    EXPECT_EQ(output.Text(), each.output);
    if (!server.valid()) continue;
    EXPECT_EQ(status.st_mode & 0777, 0660u);
    commands += "chown :2591 " + path + "\n";
  }
  for (const char *path : {static_cast<const char *>(nullptr), "", "/missing/socket"}) {
    EXPECT_EQ(ZOR_UTIL_SocketCreateServer(path, 0, ZOR_ADDR_LOCAL), -1);
  }
  std::ifstream file(record);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), commands);
}

}  // namespace
}  // namespace zor::test
