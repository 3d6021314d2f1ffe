// Parses and builds frames. A frame is a header and its data, in place in the receive buffer. Every frame that
// ParseFrame returns is complete, its data within the limit, its tags and part lengths valid.
#ifndef NOTIFYSERVER_FRAME_H
#define NOTIFYSERVER_FRAME_H

#include <zor/notify_wire.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zor::notifyserver {

struct Frame {
  enum class Kind { kNotification, kRequest, kReply };

  ZOR_NOTIFY_MSG head;
  std::span<std::byte> bytes;  // header and data

  Kind kind() const;
  // The first 32-bit word of the data, which must have one.
  uint32_t FirstValue() const;
  // Writes the sender's id into the frame: the id that a client claims is never passed on.
  void SetSource(uint32_t mid);
};

struct Parsed {
  enum class State { kWhole, kPartial, kMalformed };
  State state;
  Frame frame;         // when whole
  const char *reason;  // when malformed
};

// The frame at the start of the bytes.
Parsed ParseFrame(std::span<std::byte> bytes, size_t maxDataBytes);

// The size of the frame that starts with the bytes; 0 if they are less than a header.
size_t FrameSize(std::span<const std::byte> bytes);

// The header of the reply to a request of the given type and number.
ZOR_NOTIFY_MSG ReplyHead(uint32_t type, uint32_t sequence, uint32_t source, uint32_t destination);

// The reply without data.
std::array<std::byte, ZOR_NOTIFY_HEAD_SIZE> BuildEmptyReply(uint32_t type, uint32_t sequence, uint32_t source,
                                                            uint32_t destination);

}  // namespace zor::notifyserver

#endif
