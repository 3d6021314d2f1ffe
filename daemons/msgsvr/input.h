// Reading from a client's socket.
#ifndef MSGSVR_INPUT_H
#define MSGSVR_INPUT_H

#include <sys/types.h>

#include <cstddef>
#include <span>

#include "common/unique_fd.h"

namespace zor::msgsvr {

// Room for what a client has sent, with the input of earlier turns.
inline constexpr size_t kInputBuffer = 65536;

struct Received {
  ssize_t count = -1;  // 0 at the end of the stream; -1 with errno
  UniqueFd descriptor;
  bool excessive = false;  // more than one descriptor, or other ancillary data, arrived; all of it was closed
};

// Reads once, without blocking. The kernel ends a read after the bytes that carry a descriptor, so a descriptor always
// belongs to the last bytes.
Received Receive(int socket, std::span<std::byte> buffer);

}  // namespace zor::msgsvr

#endif
