#include "msgsvr/unread.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/sockios.h>
#include <linux/unix_diag.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "common/unique_fd.h"

namespace zor::msgsvr {
namespace {

struct Request {
  nlmsghdr head;
  unix_diag_req body;
};

Request RequestForAll() {
  Request request = {};
  request.head.nlmsg_len = sizeof request;
  request.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.body.sdiag_family = AF_UNIX;
  request.body.udiag_states = 1u << TCP_ESTABLISHED;
  request.body.udiag_show = UDIAG_SHOW_PEER | UDIAG_SHOW_RQLEN;
  return request;
}

// The record at the start of the bytes; nothing if they are too few.
template <typename Record>
std::optional<Record> RecordIn(std::span<const std::byte> bytes) {
  Record record;
  if (bytes.size() < sizeof record) return std::nullopt;
  std::memcpy(&record, bytes.data(), sizeof record);
  return record;
}

// The bytes after a part of that length and its padding.
std::span<const std::byte> After(std::span<const std::byte> bytes, size_t length) {
  static_assert(NLMSG_ALIGNTO == RTA_ALIGNTO);
  return bytes.subspan(std::min<size_t>(NLMSG_ALIGN(length), bytes.size()));
}

}  // namespace

UnreadBytes::UnreadBytes() {
  const UniqueFd netlink(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  const Request request = RequestForAll();
  if (!netlink.valid() || ::send(netlink.get(), &request, sizeof request, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) return;
  std::array<std::byte, 16384> buffer;
  ssize_t count;
  do {
    count = ::recv(netlink.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  } while ((count < 0 && errno == EINTR) ||
           (count > 0 && ParseReply(std::span(buffer).first(static_cast<size_t>(count)))));
}

// False after the last part of the reply.
bool UnreadBytes::ParseReply(std::span<const std::byte> reply) {
  while (const auto head = RecordIn<nlmsghdr>(reply)) {
    if (head->nlmsg_type != SOCK_DIAG_BY_FAMILY) return false;
    if (head->nlmsg_len < NLMSG_HDRLEN || head->nlmsg_len > reply.size()) return false;
    ParseSocket(reply.first(head->nlmsg_len).subspan(NLMSG_HDRLEN));
    reply = After(reply, head->nlmsg_len);
  }
  return true;
}

void UnreadBytes::ParseSocket(std::span<const std::byte> message) {
  const auto about = RecordIn<unix_diag_msg>(message);
  if (!about) return;
  Socket socket;
  std::span<const std::byte> rest = After(message, sizeof *about);
  while (const auto attribute = RecordIn<rtattr>(rest)) {
    if (attribute->rta_len < sizeof(rtattr) || attribute->rta_len > rest.size()) break;
    const std::span<const std::byte> value = rest.first(attribute->rta_len).subspan(sizeof(rtattr));
    if (attribute->rta_type == UNIX_DIAG_PEER) socket.peer = RecordIn<uint32_t>(value).value_or(0);
    if (attribute->rta_type == UNIX_DIAG_RQLEN) socket.unread = RecordIn<uint32_t>(value);  // its first member
    rest = After(rest, attribute->rta_len);
  }
  byInode_[about->udiag_ino] = socket;
}

std::optional<uint32_t> UnreadBytes::Of(int socket) const {
  struct stat status = {};
  if (::fstat(socket, &status) != 0) return std::nullopt;
  const auto own = byInode_.find(static_cast<uint32_t>(status.st_ino));
  if (own == byInode_.end()) return std::nullopt;
  const auto peer = byInode_.find(own->second.peer);
  return peer == byInode_.end() ? std::nullopt : peer->second.unread;
}

int UnsentBytes(int socket) {
  int bytes = 0;
  return ::ioctl(socket, SIOCOUTQ, &bytes) == 0 ? bytes : 0;
}

// The kernel drops what a process that has ended leaves unread, piece by piece, but marks the connection before that.
// So a number is true only if there is no mark after it was read.
std::optional<int> UnreadBytesOf(int socket) {
  const int bytes = UnsentBytes(socket);
  pollfd connection = {socket, 0, 0};
  if (::poll(&connection, 1, 0) > 0) return std::nullopt;
  return bytes;
}

// In this order: of a process that has ended the kernel notes that it left something before it drops that.
bool HasLeftUnread(int socket) {
  if (UnsentBytes(socket) > 0) return true;
  int error = 0;
  socklen_t size = sizeof error;
  return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == ECONNRESET;
}

Deliveries::Unread UnreadOf(const Client &client, const UnreadBytes &kernel, uint32_t nowMs) {
  const auto inSocket = client.peer.local ? kernel.Of(client.socket.get()) : std::nullopt;
  auto unread =
      client.deliveries.UnreadOf(client.output.bytesLeft() + inSocket.value_or(0), client.output.messageCount(), nowMs);
  unread.atLeast = unread.atLeast || (!inSocket && HasUnread(client.socket.get()));
  return unread;
}

}  // namespace zor::msgsvr
