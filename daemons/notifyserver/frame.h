// Frames: a header and its data, as they stand in the receive buffer. Every frame that leaves ParseFrame is whole, its
// data within the limit, its tags and part lengths in order.
#ifndef NOTIFYSERVER_FRAME_H
#define NOTIFYSERVER_FRAME_H

#include <zor/notify_wire.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zor::notifyserver {

struct Frame {
  enum class Kind { kNotification, kRequest, kAnswer };

  ZOR_NOTIFY_MSG head;
  std::span<std::byte> bytes;  // header and data

  Kind kind() const;
  // The 32-bit word that the data begins with; it must be there.
  uint32_t FirstValue() const;
  // Writes the id of the sender into the frame: what a client says about itself is never passed on.
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

// The header of the answer to a request of the given type and number.
ZOR_NOTIFY_MSG AnswerHead(uint32_t type, uint32_t sequence, uint32_t source, uint32_t destination);

// The answer without data.
std::array<std::byte, ZOR_NOTIFY_HEAD_SIZE> BuildEmptyAnswer(uint32_t type, uint32_t sequence, uint32_t source,
                                                             uint32_t destination);

}  // namespace zor::notifyserver

#endif
