// The pair of "track" lines around the handling of one message.
#ifndef TRACE_MESSAGE_TRACK_H
#define TRACE_MESSAGE_TRACK_H

#include <zor/msg_wire.h>

#include <cstddef>
#include <cstdint>

#include "base/text.h"

namespace zor {

// Keeps what both lines print: a handler may reuse the block for its reply, run the loop or leave the bus, and readers
// of the trace pair the lines by their values.
class MessageTrack {
 public:
  // iteration: the loop's number of the turn. blockLength: bytes of the block; what a shorter block lacks prints as 0.
  // Callers leave out file and lines, which are then their own.
  MessageTrack(const ZOR_MSG_HEAD &msg, std::uint64_t iteration, std::size_t blockLength = sizeof(ZOR_MSG_HEAD),
               const char *file = __builtin_FILE()) noexcept;

  void Start(std::uint32_t line = __builtin_LINE()) const noexcept { Print("start", line); }
  void End(std::uint32_t line = __builtin_LINE()) const noexcept { Print("end", line); }

 private:
  void Print(const char *stage, std::uint32_t line) const noexcept;

  const char *file_;
  long long iteration_;
  NameField appName_;
  ZOR_MSG_HEAD header_ = {};
};

}  // namespace zor

#endif
