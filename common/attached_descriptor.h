// A descriptor that travels with a message: the control part of a msghdr. It must outlive the call that sends it.
#ifndef COMMON_ATTACHED_DESCRIPTOR_H
#define COMMON_ATTACHED_DESCRIPTOR_H

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstring>

namespace zor {

class AttachedDescriptor {
 public:
  AttachedDescriptor(msghdr &message, int descriptor) noexcept {
    message.msg_control = control_.data();
    message.msg_controllen = control_.size();
    cmsghdr *head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(head), &descriptor, sizeof descriptor);
  }
  AttachedDescriptor(const AttachedDescriptor &) = delete;
  AttachedDescriptor &operator=(const AttachedDescriptor &) = delete;

 private:
  alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int))> control_{};
};

}  // namespace zor

#endif
