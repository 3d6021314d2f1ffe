// Writing to a client without ever waiting for it: what its socket does not take at once goes into a bounded queue of
// messages, each with at most one descriptor. A server writes straight to the socket with SendNow while the queue is
// empty, pushes what is left, and flushes when the socket becomes writable. It is the server that decides what happens
// to a client whose queue is full; messages() returns what that client loses.
#ifndef PROGRAMS_OUTPUT_QUEUE_H
#define PROGRAMS_OUTPUT_QUEUE_H

#include <sys/types.h>

#include <cstddef>
#include <initializer_list>
#include <list>
#include <span>
#include <vector>

#include "common/unique_fd.h"

namespace zor::daemon {

// Sends what the socket takes at once, the descriptor (unless -1) with the first byte. Returns the number of bytes
// taken, 0 when the socket is full; -1, with errno, when nothing can be sent any more.
ssize_t SendNow(int socket, std::span<const std::byte> bytes, int descriptor = -1);

class OutputQueue {
 public:
  struct Message {
    std::vector<std::byte> bytes;
    size_t sent;          // of the bytes, at the front
    UniqueFd descriptor;  // goes with the first byte
  };
  enum class State { kDrained, kBlocked, kBroken };

  explicit OutputQueue(size_t maxBytes) : maxBytes_(maxBytes) {}

  // Appends a message of which the first bytes have been sent already. False, with nothing changed, when it does not
  // fit; the bytes count with what it costs to keep them. Throws
  // std::bad_alloc, also with nothing changed.
  bool Push(std::span<const std::byte> message, size_t sent = 0, UniqueFd &&descriptor = UniqueFd());
  // Whether messages of these sizes fit together.
  bool Fits(std::initializer_list<size_t> sizes) const;
  // Sends until the queue is empty, the socket takes no more, or fails (errno says why).
  State Flush(int socket);
  // Gives up the first message.
  void DropFront();

  bool empty() const { return messages_.empty(); }
  // The cost of what is queued, to be compared with maxBytes().
  size_t bytes() const { return bytes_; }
  size_t maxBytes() const { return maxBytes_; }
  // The bytes themselves that are still to be sent.
  size_t bytesLeft() const;
  // What is queued; the first message may be partly sent.
  const std::list<Message> &messages() const { return messages_; }

 private:
  ssize_t SendFront(int socket);
  void Advance(size_t count);

  std::list<Message> messages_;
  size_t maxBytes_;
  size_t bytes_ = 0;
  size_t descriptors_ = 0;
};

}  // namespace zor::daemon

#endif
