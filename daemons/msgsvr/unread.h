// How many bytes clients have left unread in their sockets: the kernel's to know, and asked for only when somebody
// wants to see it.
#ifndef MSGSVR_UNREAD_H
#define MSGSVR_UNREAD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>

namespace zor::msgsvr {

// All connected local sockets at one moment: to ask for each of them would make the kernel look through all, each time.
class UnreadBytes {
 public:
  UnreadBytes();

  // What the other end of this connected local socket had not read; nothing when the kernel did not say, for example
  // because that end is in another network namespace.
  std::optional<uint32_t> Of(int socket) const;

 private:
  struct Socket {
    uint32_t peer = 0;               // inode
    std::optional<uint32_t> unread;  // bytes in this socket
  };

  bool Take(std::span<const std::byte> answer);
  void TakeSocket(std::span<const std::byte> message);

  std::unordered_map<uint32_t, Socket> byInode_;
};

// Whether something is on the way to the other end, of any kind of socket.
bool HasUnread(int socket);

}  // namespace zor::msgsvr

#endif
