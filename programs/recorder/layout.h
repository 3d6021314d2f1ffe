// What lies where in a recording: a ring in memory that outlives its server, or the file that is made of it. Only plain
// numbers, no pointers: it is read by other processes, perhaps of another version. A head, then slots in any order.
#ifndef PROGRAMS_RECORDER_LAYOUT_H
#define PROGRAMS_RECORDER_LAYOUT_H

#include <zor/msg_wire.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace zor::recorder {

inline constexpr uint64_t kMagic = 0x64726f6365727a01;
inline constexpr uint32_t kLayout = 1;
inline constexpr size_t kBodyBytes = 64;  // of each frame

struct Head {
  uint64_t magic;
  uint32_t layout;
  uint32_t slotBytes;
  uint64_t clockOffsetUs;  // from the slots' clock to the time since 1970; wraps
  std::array<uint64_t, 5> unused;
};
static_assert(sizeof(Head) == 64);

struct Slot {
  uint64_t number;  // counts all frames from 1; 0: empty, or being written
  uint64_t timeUs;  // on the steady clock
  std::array<char, ZOR_MSG_NAME_SIZE> receiver;
  uint16_t outcome;  // ZOR_CONTROL_DELIVERED, ...
  uint16_t bytes;    // of the frame that are here
  std::array<std::byte, ZOR_MSG_HEAD_SIZE + kBodyBytes> frame;
};
static_assert(sizeof(Slot) == 136);

// The longest recording that is read.
inline constexpr size_t kMostSlots = 32768;
inline constexpr size_t kMostBytes = sizeof(Head) + kMostSlots * sizeof(Slot);

}  // namespace zor::recorder

#endif
