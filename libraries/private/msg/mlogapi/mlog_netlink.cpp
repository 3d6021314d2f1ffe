#include <zor/mlog.h>

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "common/socket_address.h"
#include "common/unique_fd.h"

namespace zor {
namespace {

constexpr int kStatProtocol = 28;
constexpr int kKernelProtocol = 25;
constexpr std::uint16_t kStatType = 3;

static_assert(sizeof(nlmsghdr) == 16);
constexpr std::uint64_t kAlign = 4;

sockaddr_nl NetlinkAddress(std::uint32_t port) {
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_pid = port;
  return address;
}

bool BindPort(int fd, std::uint32_t port) {
  return Bind(fd, NetlinkAddress(port));
}

// A netlink message and the size of its block, which is a multiple of 4; null when it is too large.
struct Packet {
  MallocPtr<nlmsghdr> header;
  std::size_t size = 0;
};

Packet MakePacket(std::uint16_t type, std::uint32_t port, const void *data, std::uint32_t length) {
  const std::uint64_t used = sizeof(nlmsghdr) + std::uint64_t{length};
  const std::uint64_t size = (used + kAlign - 1) / kAlign * kAlign;
  Packet packet = {MallocPtr<nlmsghdr>(static_cast<nlmsghdr *>(GuardedCalloc(size))), 0};
  if (packet.header == nullptr) return packet;
  packet.size = static_cast<std::size_t>(size);
  *packet.header = {static_cast<std::uint32_t>(used), type, 0, 0, port};
  if (length > 0) std::memcpy(packet.header.get() + 1, data, length);
  return packet;
}

// Sends to the given address, or to where the socket is connected when there is none: the kernel.
bool SendPacket(int fd, const Packet &packet, sockaddr_nl *to) {
  iovec piece = {packet.header.get(), packet.size};
  msghdr msg = {};
  msg.msg_name = to;
  msg.msg_namelen = to == nullptr ? 0 : sizeof *to;
  msg.msg_iov = &piece;
  msg.msg_iovlen = 1;
  ssize_t count;
  do {
    count = ::sendmsg(fd, &msg, MSG_NOSIGNAL);
  } while (count < 0 && errno == EINTR);
  return count >= 0;
}

}  // namespace
}  // namespace zor

int32_t mlog_netlink_open(int32_t *fd) {
  if (fd == nullptr) return -1;
  zor::UniqueFd opened(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, zor::kStatProtocol));
  if (!opened.valid()) {
    std::perror("\n netlink socket fail :");
    return -1;
  }
  if (!zor::BindPort(opened.get(), static_cast<uint32_t>(::getpid()))) return -1;
  *fd = opened.release();
  return 0;
}

int32_t stat_netlink_send(int32_t fd, const void *data, uint32_t length) {
  if (data == nullptr && length != 0) return -1;
  const zor::Packet packet = zor::MakePacket(zor::kStatType, static_cast<uint32_t>(::getpid()), data, length);
  if (packet.header == nullptr) return -1;
  if (zor::SendPacket(fd, packet, nullptr)) return 0;
  std::perror("\nsend msg fail :\n");
  return -1;
}

int32_t stat_netlink_receive(int32_t fd, ZOR_MLOG_STAT *stat) {
  if (stat == nullptr) return -1;
  struct {
    nlmsghdr header;
    ZOR_MLOG_STAT stat;
  } packet = {};
  static_assert(sizeof packet == 532);
  iovec piece = {&packet, sizeof packet};
  msghdr msg = {};
  msg.msg_iov = &piece;
  msg.msg_iovlen = 1;
  ssize_t count;
  do {
    count = ::recvmsg(fd, &msg, 0);
  } while (count < 0 && errno == EINTR);
  if (count != static_cast<ssize_t>(sizeof packet)) {  // less than a whole record is no record
    std::printf("recvmsg error (%d) , %s \n", static_cast<int>(count), "stat_netlink_receive");
    return -1;
  }
  *stat = packet.stat;
  return 0;
}

uint32_t ZOR_Netlink_SendToKernel(const void *data, uint32_t length, uint32_t port) {
  if (data == nullptr || port == 0) return 1;
  const zor::UniqueFd fd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, zor::kKernelProtocol));
  if (!fd.valid()) return 1;
  if (!zor::BindPort(fd.get(), port)) {
    std::perror("bind error\n");
    return 1;
  }
  // The kernel module knows its message by the port alone, so the type repeats the port's low half.
  const zor::Packet packet = zor::MakePacket(static_cast<uint16_t>(port), port, data, length);
  if (packet.header == nullptr) return 1;
  sockaddr_nl kernel = zor::NetlinkAddress(0);
  if (!zor::SendPacket(fd.get(), packet, &kernel)) std::perror("send failed for balance\n");
  return 0;
}
