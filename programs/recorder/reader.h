// Reads recordings. Nothing in them is trusted: a ring may come from a server that wrote where it should not, a file
// from anywhere. They are read as far as they are sound.
#ifndef PROGRAMS_RECORDER_READER_H
#define PROGRAMS_RECORDER_READER_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "programs/recorder/layout.h"

namespace zor::recorder {

// All slots are sound, and the oldest is first.
struct Recording {
  uint64_t clockOffsetUs = 0;
  std::vector<Slot> slots = {};
  size_t damaged = 0;  // further ones, which are not sound
};

// Nothing, with the reason, if it is no recording. Throws std::bad_alloc.
std::optional<Recording> ReadRecording(std::span<const std::byte> bytes, std::string &problem);
// The same from a descriptor, as much as the longest one has.
std::optional<Recording> ReadRecording(int fd, std::string &problem);

// The frame as the server sends it to monitors: a ZOR_CONTROL_COPY, the header and the recorded start of the body.
// `missed` frames were recorded before it that are lost.
std::string CopyOf(const Slot &slot, uint64_t clockOffsetUs, uint32_t missed);

}  // namespace zor::recorder

#endif
