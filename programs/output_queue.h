// Writing to a client without ever waiting for it: what its socket does not take at once goes into a bounded queue of
// messages, each with at most one descriptor. A server writes straight to the socket while the queue is empty, pushes
// what is left, and flushes when the socket becomes writable. It is the server that decides what happens to a client
// whose queue is full; ForEach shows what that client loses.
//
// The messages are in the server's journal, where they outlive it; only the descriptors are lost with the process. What
// Push and DropFront change is valid after the journal's next commit. Flush commits.
#ifndef PROGRAMS_OUTPUT_QUEUE_H
#define PROGRAMS_OUTPUT_QUEUE_H

#include <sys/types.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <vector>

#include "common/unique_fd.h"
#include "programs/journal/slot.h"

namespace zor::daemon {

// Sends what the socket takes at once. Returns the number of bytes taken, 0 when the socket is full; -1, with errno,
// when nothing can be sent any more. If the server is killed meanwhile nobody knows how much was sent: WriteInTurn and
// Flush do not have that weakness.
ssize_t SendNow(int socket, std::span<const std::byte> bytes);

class OutputQueue {
 public:
  enum class State { kDrained, kBlocked, kBroken };

  // The slot must outlive the queue.
  OutputQueue(JournalSlot &slot, size_t maxBytes)
      : slot_(slot), maxBytes_(static_cast<uint32_t>(std::min<size_t>(maxBytes, UINT32_MAX))) {}

  // Appends a message of which the first bytes have been sent already. False, with nothing changed, when it does not
  // fit, or the journal is full; the bytes count with what it costs to keep them. One with a descriptor, which belongs
  // to the message before it, fits until there are too many descriptors. Throws std::bad_alloc for a descriptor, also
  // with nothing changed.
  bool Push(std::span<const std::byte> message, size_t sent = 0, UniqueFd &&descriptor = UniqueFd());
  // What it costs to keep a message of that size.
  static size_t CostOf(size_t messageSize);
  // Whether messages of these sizes fit together.
  bool Fits(std::initializer_list<size_t> sizes) const;
  // Sends until the queue is empty, the socket takes no more, or fails (errno says why).
  State Flush(int socket);
  // Gives up the first message.
  void DropFront();

  bool empty() const { return queue().messages == 0; }
  size_t messageCount() const { return queue().messages; }
  // The cost of what is queued, to be compared with maxBytes().
  size_t bytes() const { return static_cast<size_t>(queue().cost); }
  size_t maxBytes() const { return maxBytes_; }
  // The bytes themselves that are still to be sent.
  size_t bytesLeft() const { return static_cast<size_t>(queue().left); }
  // Descriptors that have not been sent.
  size_t descriptorCount() const { return descriptors_ == nullptr ? 0 : descriptors_->size(); }

  // Calls visit(bytes, sent, descriptor) for each message, oldest first: all its bytes, of which the first may have
  // been sent, and the descriptor that is still to be sent or -1. The bytes are valid during the call.
  template <typename Visit>
  void ForEach(Visit visit) const {
    std::vector<std::byte> gathered;
    Place place = Front();
    size_t descriptor = 0;
    for (uint32_t left = queue().messages, sent = queue().sent; left > 0; --left, sent = 0) {
      const journal::MessageHead head = TakeHead(place);
      const bool attached = head.hasDescriptor != 0 && sent == 0;
      visit(TakeBytes(place, head.size, gathered), size_t{sent}, attached ? (*descriptors_)[descriptor++].get() : -1);
    }
  }

 private:
  // A place among the bytes of the blocks; at the end of a block also that at the start of the next one, if there is
  // one.
  struct Place {
    uint32_t block;
    uint32_t offset;
  };

  const journal::Queue &queue() const { return slot_.state().output; }
  journal::Queue &edit() { return slot_.edit().output; }
  journal::Blocks &blocks() const { return slot_.journal().largeBlocks(); }

  size_t Room() const { return maxBytes() - std::min(bytes(), maxBytes()); }
  Place Front() const { return {queue().first, queue().front}; }
  // Each of these moves the place behind what it takes.
  std::span<std::byte> TakePiece(Place &place, size_t most) const;
  journal::MessageHead TakeHead(Place &place) const;
  std::span<const std::byte> TakeBytes(Place &place, size_t size, std::vector<std::byte> &gathered) const;
  void Put(Place &place, std::span<const std::byte> bytes);

  void ReserveDescriptor();
  void DropDescriptor();
  bool MakeRoom(size_t bytes, bool urgent);
  ssize_t SendFront(int socket);
  void Advance(size_t count);
  void RemoveFront();

  JournalSlot &slot_;
  std::unique_ptr<std::vector<UniqueFd>> descriptors_;  // of the messages that have one, in their order; null: none
  uint32_t maxBytes_;
};

}  // namespace zor::daemon

#endif
