// How many bytes clients have left unread in their sockets. The kernel is asked only when a tool wants to show it, or
// when daemons may wait for each other in a circle.
#ifndef MSGSVR_UNREAD_H
#define MSGSVR_UNREAD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>

#include "msgsvr/client.h"

namespace zor::msgsvr {

// A snapshot of all connected local sockets: the kernel would search all of them for each single one.
class UnreadBytes {
 public:
  UnreadBytes();

  // The number of bytes that the other end of this connected local socket had not read; nothing if the kernel does not
  // know, for example because that end is in another network namespace.
  std::optional<uint32_t> Of(int socket) const;

 private:
  struct Socket {
    uint32_t peer = 0;               // inode
    std::optional<uint32_t> unread;  // bytes in this socket
  };

  bool ParseReply(std::span<const std::byte> reply);
  void ParseSocket(std::span<const std::byte> message);

  std::unordered_map<uint32_t, Socket> byInode_;
};

// What has not been read at the other end of a local socket, as the kernel accounts for it, or has not reached the
// other end of one to another board, in bytes.
int UnsentBytes(int socket);
// The same while the other end is there; nothing once it is gone, since nobody will know any more what it had read.
std::optional<int> UnreadBytesOf(int socket);
inline bool HasUnread(int socket) {
  return UnreadBytesOf(socket) != 0;
}

// Whether the other end of a local socket, which reads no more, has left something unread.
bool HasLeftUnread(int socket);

// What a client has not read: in the server's queue, and in its socket as far as it is known.
Deliveries::Unread UnreadOf(const Client &client, const UnreadBytes &kernel, uint32_t nowMs);

}  // namespace zor::msgsvr

#endif
