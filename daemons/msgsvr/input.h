// Reading from clients: what has arrived is routed, frame by frame, and what is left is kept for the next time.
//
// Every client's input passes through the journal's buffer, so it takes no memory of its own unless it ends in a
// partial frame, or is more than the client's due in one turn.
#ifndef MSGSVR_INPUT_H
#define MSGSVR_INPUT_H

#include <sys/types.h>

#include <cstddef>
#include <span>

#include "common/unique_fd.h"
#include "msgsvr/router.h"

namespace zor::msgsvr {

// The room for what is read at a time, with what was left before.
inline constexpr size_t kInputBuffer = 65536;

struct Received {
  ssize_t count = -1;  // 0 at the end of the stream; -1 with errno
  UniqueFd descriptor;
  bool excessive = false;  // more than one descriptor, or other ancillary data, arrived; all of it was closed
};

class Input {
 public:
  Input(Bus &bus, Router &router) : bus_(bus), journal_(bus.journal), router_(router) {}

  // Reads once from the client, without blocking, and routes what is its due in a turn. Afterwards the client is
  // readable if there may be more. Throws std::bad_alloc.
  void Read(Client &client);

 private:
  size_t ReadMore(Client &client, Received &received);
  Received Receive(Client &client, size_t most);
  void Handle(Client &client, std::span<std::byte> bytes, UniqueFd descriptor);
  bool KeepBacklog(Client &client, size_t routed, std::span<std::byte> rest, UniqueFd &descriptor);
  void Pass(Client &client, std::span<const std::byte> frame, UniqueFd descriptor);
  void Keep(Client &client, std::span<const std::byte> rest);

  Bus &bus_;
  daemon::Journal &journal_;
  Router &router_;
};

}  // namespace zor::msgsvr

#endif
