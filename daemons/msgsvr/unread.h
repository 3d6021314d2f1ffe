// How many bytes a client has left unread in its socket: the kernel's to know, and asked for only when somebody wants
// to see it.
#ifndef MSGSVR_UNREAD_H
#define MSGSVR_UNREAD_H

#include <cstdint>
#include <optional>

#include "common/fd.h"

namespace zor::msgsvr {

class UnreadBytes {
 public:
  UnreadBytes();

  // What the other end of this connected local socket has not read; nothing when the kernel does not say, for example
  // because that end is in another network namespace.
  std::optional<uint32_t> Of(int socket) const;

 private:
  struct Answer {
    std::optional<uint32_t> peer;    // inode
    std::optional<uint32_t> unread;  // bytes in this socket
  };
  Answer Ask(uint32_t inode) const;

  daemon::Fd netlink_;
};

// Whether something is on the way to the other end, of any kind of socket.
bool HasUnread(int socket);

}  // namespace zor::msgsvr

#endif
