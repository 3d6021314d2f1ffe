// Reads whole messages from a stream: a header of fixed length, then the payload that it announces.
//
// All messages of the bus are read here, those that the loop dispatches and those that a request waits for. Their
// readers differ in how long they wait and in whether a header may come in pieces, and say so in their rules; between
// header and payload each looks at the header in its own way. A reader never takes a byte beyond its message: what
// follows may be a frame with a descriptor, or belong to another process that shares the socket.
//
// Any member may pass a descriptor to any other. A frame with one that the receiver did not ask for fails a header
// read, but is taken whole: its two bytes would otherwise begin a header whose rest is the sender's choice, and so
// would the name of the next message's sender be.
#ifndef MESSAGE_READER_H
#define MESSAGE_READER_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/stream_read.h"
#include "message/context.h"

namespace zor {

struct ReadRules {
  std::uint32_t headerLength;
  // False: the header is taken with one read that waits without limit, and one that comes in pieces is an error.
  bool headerInPieces;
  ReadWaits headerWaits;
  ReadWaits payloadWaits;
};

class MessageReader {
 public:
  MessageReader(int fd, const ReadRules &rules) noexcept : fd_(fd), rules_(rules) {}

  // The statuses of ReadExactly, ZOR_E_IO for a frame with a descriptor; ZOR_E_NO_MEMORY, with nothing read, when there
  // is no memory for a header.
  std::uint32_t ReadHeader() noexcept;

  // Reads that many bytes behind the header. ZOR_E_NO_MEMORY, with nothing read, for a length above
  // ZOR_MSG_RECV_BODY_MAX or one that the allocation guard refuses, with its line.
  std::uint32_t ReadPayload(std::uint32_t length) noexcept;

  // Whether a part of a message was taken and its rest cannot be: what follows does not begin with a header.
  bool torn() const noexcept { return torn_; }

  // What was read so far, and its length in bytes: less than a bus header when the rules say so.
  ZOR_MSG_HEAD *message() const noexcept { return message_.get(); }
  std::size_t length() const noexcept { return length_; }
  MessagePtr Take() noexcept { return std::move(message_); }

 private:
  std::uint32_t ReadHeaderAtOnce() noexcept;

  int fd_;
  const ReadRules rules_;
  MessagePtr message_;
  std::size_t length_ = 0;
  bool torn_ = false;
};

}  // namespace zor

#endif
