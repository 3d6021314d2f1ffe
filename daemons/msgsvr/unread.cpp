#include "msgsvr/unread.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/sockios.h>
#include <linux/unix_diag.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <span>

namespace zor::msgsvr {
namespace {

struct Request {
  nlmsghdr head;
  unix_diag_req body;
};

Request RequestFor(uint32_t inode) {
  Request request = {};
  request.head.nlmsg_len = sizeof request;
  request.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.head.nlmsg_flags = NLM_F_REQUEST;
  request.body.sdiag_family = AF_UNIX;
  request.body.udiag_states = UINT32_MAX;
  request.body.udiag_ino = inode;
  request.body.udiag_show = UDIAG_SHOW_PEER | UDIAG_SHOW_RQLEN;
  request.body.udiag_cookie[0] = request.body.udiag_cookie[1] = UINT32_MAX;  // any
  return request;
}

// The record at the start of the bytes; nothing when they hold less.
template <typename Record>
std::optional<Record> Take(std::span<const std::byte> bytes) {
  Record record;
  if (bytes.size() < sizeof record) return std::nullopt;
  std::memcpy(&record, bytes.data(), sizeof record);
  return record;
}

}  // namespace

UnreadBytes::UnreadBytes() : netlink_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {}

std::optional<uint32_t> UnreadBytes::Of(int socket) const {
  struct stat status = {};
  if (!netlink_.valid() || ::fstat(socket, &status) != 0) return std::nullopt;
  const std::optional<uint32_t> peer = Ask(static_cast<uint32_t>(status.st_ino)).peer;
  return peer ? Ask(*peer).unread : std::nullopt;
}

UnreadBytes::Answer UnreadBytes::Ask(uint32_t inode) const {
  const Request request = RequestFor(inode);
  std::array<std::byte, 1024> buffer;
  if (::send(netlink_.get(), &request, sizeof request, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) return {};
  ssize_t count;
  do {
    count = ::recv(netlink_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return {};
  std::span<const std::byte> rest = std::span(buffer).first(static_cast<size_t>(count));
  const auto head = Take<nlmsghdr>(rest);
  if (!head || head->nlmsg_type != SOCK_DIAG_BY_FAMILY || rest.size() < NLMSG_LENGTH(sizeof(unix_diag_msg))) return {};
  rest = rest.subspan(NLMSG_LENGTH(sizeof(unix_diag_msg)));
  Answer answer;
  while (const auto attribute = Take<rtattr>(rest)) {
    if (attribute->rta_len < sizeof(rtattr) || attribute->rta_len > rest.size()) break;
    const std::span<const std::byte> value = rest.first(attribute->rta_len).subspan(sizeof(rtattr));
    if (attribute->rta_type == UNIX_DIAG_PEER) answer.peer = Take<uint32_t>(value);
    if (attribute->rta_type == UNIX_DIAG_RQLEN) answer.unread = Take<uint32_t>(value);  // its first member
    rest = rest.subspan(std::min<size_t>(RTA_ALIGN(attribute->rta_len), rest.size()));
  }
  return answer;
}

bool HasUnread(int socket) {
  int bytes = 0;
  return ::ioctl(socket, SIOCOUTQ, &bytes) == 0 && bytes > 0;
}

}  // namespace zor::msgsvr
