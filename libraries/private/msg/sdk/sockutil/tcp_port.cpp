// Which TCP ports are listened on, as the kernel lists them.
#include <unistd.h>
#include <zor/platform/bounded.h>
#include <zor/socket.h>

#include <cstdio>

#include "base/file_ptr.h"

namespace zor {
namespace {

constexpr unsigned kListening = 10;
constexpr int kFieldCount = 7;

struct TcpSocket {
  int slot;
  char localAddress[65];
  unsigned localPort;
  char remoteAddress[65];
  unsigned remotePort;
  unsigned state;
  char rest[128];
};

bool Parse(const char *line, TcpSocket &socket) {
  const int count =
      sscanf_s(line, "%d: %64[0-9A-Fa-f]:%X %64[0-9A-Fa-f]:%X %X %127s\n", &socket.slot, socket.localAddress,
               &socket.localPort, socket.remoteAddress, &socket.remotePort, &socket.state, socket.rest);
  return count == kFieldCount;
}

}  // namespace
}  // namespace zor

uint32_t ZOR_UTIL_CheckTCPPortInUse(uint16_t port) {
  const zor::FilePtr sockets(std::fopen("/proc/net/tcp", "re"));
  if (sockets == nullptr) return 0;
  char line[256];
  while (std::fgets(line, sizeof line, sockets.get()) != nullptr) {
    zor::TcpSocket socket;
    if (!zor::Parse(line, socket)) {
      std::printf("%d msgapi parse tcpfile failed!\n", static_cast<int>(::getpid()));
    } else if (socket.localPort == port && socket.state == zor::kListening) {
      return 1;
    }
  }
  return 0;
}
