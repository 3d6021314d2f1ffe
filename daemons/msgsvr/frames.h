// Parses and builds frames. A frame is a header and its body, in place in the receive buffer. Every frame that
// ParseFrame returns is complete, its body no longer than the library ever sends through the socket, its destination
// terminated.
#ifndef MSGSVR_FRAMES_H
#define MSGSVR_FRAMES_H

#include <zor/msg_wire.h>

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "msgsvr/names.h"

namespace zor::msgsvr {

// Longer bodies travel in a file, so a longer one on the socket does not come from the library.
inline constexpr size_t kMaxFrameSize = ZOR_MSG_HEAD_SIZE + ZOR_MSG_INLINE_BODY_MAX;

struct Frame {
  ZOR_MSG_HEAD head;
  AppName destination;
  std::span<std::byte> bytes;  // header and body

  uint32_t type() const { return head.type & ZOR_MSG_TYPE_MASK; }
  bool bodyInFile() const { return (head.type & ZOR_MSG_BODY_IN_FILE) != 0; }
  std::span<const std::byte> body() const { return bytes.subspan(ZOR_MSG_HEAD_SIZE); }
  // Writes the sender's name into the frame: the name that a client claims is never passed on.
  void SetSource(const AppName &name);
};

struct Parsed {
  enum class State { kWhole, kPartial, kMalformed };
  State state;
  Frame frame;         // when whole
  const char *reason;  // when malformed
};

// The frame at the start of the bytes.
Parsed ParseFrame(std::span<std::byte> bytes);

// The size of the whole frame at the start of bytes that ParseFrame has accepted before, or that are from the server.
// That of a reply to a registration may be in the other byte order.
size_t FrameSize(std::span<const std::byte> bytes);

// The same header in the other byte order, and a frame with that header.
ZOR_MSG_HEAD InOtherOrder(ZOR_MSG_HEAD head);
std::vector<std::byte> InOtherOrder(std::span<const std::byte> frame);

// The text at the start of a body, up to its first NUL or its end.
std::string_view TextOf(std::span<const std::byte> body);

// Builds a frame from the server itself, whose source is empty.
std::vector<std::byte> BuildFrame(uint32_t type, uint32_t sequence, const AppName &destination, uint32_t data,
                                  std::span<const std::byte> body = {});

}  // namespace zor::msgsvr

#endif
