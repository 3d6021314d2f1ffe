#include "msgsvr/input.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace zor::msgsvr {
namespace {

// Room for two, so that a second descriptor is noticed and closed.
constexpr size_t kControlSize = CMSG_SPACE(2 * sizeof(int));

void TakeDescriptors(const cmsghdr &control, Received &received) {
  if (control.cmsg_level != SOL_SOCKET || control.cmsg_type != SCM_RIGHTS) {
    received.excessive = true;
    return;
  }
  const size_t count = (control.cmsg_len - CMSG_LEN(0)) / sizeof(int);
  for (size_t i = 0; i < count; ++i) {
    int descriptor;
    std::memcpy(&descriptor, CMSG_DATA(&control) + i * sizeof descriptor, sizeof descriptor);
    if (received.descriptor.valid()) received.excessive = true;
    received.descriptor.reset(descriptor);
  }
}

}  // namespace

Received Receive(int socket, std::span<std::byte> buffer) {
  alignas(cmsghdr) std::array<std::byte, kControlSize> control;
  iovec vector = {buffer.data(), buffer.size()};
  msghdr message = {};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  Received received;
  do {
    received.count = ::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  } while (received.count < 0 && errno == EINTR);
  if (received.count < 0 || (message.msg_controllen == 0 && (message.msg_flags & MSG_CTRUNC) == 0)) return received;
  for (cmsghdr *head = CMSG_FIRSTHDR(&message); head != nullptr; head = CMSG_NXTHDR(&message, head)) {
    TakeDescriptors(*head, received);
  }
  if ((message.msg_flags & MSG_CTRUNC) != 0) received.excessive = true;
  return received;
}

}  // namespace zor::msgsvr
