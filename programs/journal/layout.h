// What lies where in a journal, a file in memory that outlives its server. Only plain numbers, no pointers: it is read
// by another process, perhaps of another version of the program, which refuses a layout that is not its own.
//
// A slot per client, and the turn under way, have two versions each. A change writes the older one and marks it with
// the number of the commit to come; the commit itself is one store of that number. Whatever was changed since the
// commit before, in any number of slots, becomes valid together. A version with a higher number than the commit's is
// invalid.
#ifndef PROGRAMS_JOURNAL_LAYOUT_H
#define PROGRAMS_JOURNAL_LAYOUT_H

#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace zor::daemon::journal {

inline constexpr uint64_t kMagic = 0x6c616e72756f6a7a;
inline constexpr uint32_t kLayout = 1;

inline constexpr uint32_t kNoFrame = UINT32_MAX;
inline constexpr uint32_t kNone = 0;  // index of no block and no slot: both are counted from 1
inline constexpr uint32_t kSmallBlock = 256;
inline constexpr uint32_t kLargeBlock = 4096;

// At the start of each block.
struct BlockHead {
  uint32_t next;  // valid in blocks before the last one of their chain
  uint32_t unused;
};

// Bytes in a chain of blocks.
struct Chain {
  uint32_t first;
  uint32_t last;
  uint64_t bytes;
};

// Messages in a chain of large blocks, each after a MessageHead and padded to a multiple of its size.
struct Queue {
  uint32_t first;
  uint32_t last;
  uint32_t front;  // offset of the first message's head among the first block's bytes
  uint32_t end;    // bytes used in the last block
  uint32_t messages;
  uint32_t sent;  // bytes of the first message
  uint64_t cost;  // heads, bytes and padding
  uint64_t left;  // bytes that are still to be sent
};

struct MessageHead {
  uint32_t size;
  uint32_t hasDescriptor;  // which goes with the first byte, and is lost with the process
};

// What a server notes about a client besides; it means the same to every server, but not each needs all.
struct Notes {
  uint64_t lastTarget;      // id of the client that received its latest message
  uint64_t servedUpTo;      // place of the last subscriber that has got the first frame of the input
  uint32_t suspectAt;       // offset in the input of the frame at which a server crashed
  uint32_t crashes;         // how often, in the reader's measure
  uint32_t halfDescriptor;  // a descriptor belongs to the end of the input
  uint32_t unused;
};

struct SlotState {
  alignas(8) uint64_t stamp;  // for StampStore: some machines align it to 4
  uint64_t owner;             // id of the client; 0: free
  Chain record;               // in small blocks
  Chain input;                // in large blocks
  Queue output;
  Notes notes;
};

struct alignas(64) Slot {
  std::array<SlotState, 2> versions;
  uint32_t unread;  // messages that the client has perhaps not read; stored without a commit
};
static_assert(sizeof(Slot) <= 320);
inline constexpr uint32_t kSlotBytes = sizeof(Slot);

// The work of the server at this moment.
struct Turn {
  alignas(8) uint64_t stamp;
  uint32_t reader;    // slot of the client whose input is in the buffer; kNone: the rest of this has no meaning
  uint32_t kept;      // bytes in the buffer that were there before the read
  uint32_t routed;    // bytes of the buffer whose effects are in the journal or in sockets
  uint32_t writeTo;   // slot of the client to which bytes of the buffer are being written
  uint32_t writeEnd;  // they begin at `routed`; 0: no write is under way
  uint32_t receiver;  // Receiver: the only one, or one of those of an event
  uint32_t flushing;  // slot of the client whose queue is being sent
  uint32_t suspectAt;
  uint32_t crashes;
  uint64_t servedUpTo;
  uint64_t lastTarget;
};

struct Geometry {
  uint32_t slots;
  uint32_t smallBlocks;
  uint32_t largeBlocks;
  uint32_t bufferBytes;
  friend bool operator==(const Geometry &, const Geometry &) = default;
};

struct Head {
  uint64_t magic;
  uint32_t layout;
  uint32_t headBytes;  // differs between word sizes
  uint64_t program;
  uint64_t generation;
  Geometry geometry;
  uint32_t complete;   // all that an earlier journal held is in it
  uint32_t slotsUsed;  // no slot beyond this index has ever had an owner
  uint64_t stamp;      // of the latest commit
  std::array<Turn, 2> turns;
  uint32_t crashed;  // the process was ended by the signal of a crash
  uint32_t frameAt;  // offset in the buffer of the frame at work, or kNoFrame; stored without a commit
  // The kernel itself stores here how many bytes it has moved, before a signal can end the process.
  mmsghdr read;
  mmsghdr write;
};

// Numbers of commits are stored whole where a word has 32 bits too: a half of one would make a version valid that is
// not. They keep 64 bits, since a busy server reaches 32 in days.
using StampStore = std::atomic_ref<uint64_t>;
static_assert(StampStore::is_always_lock_free);
static_assert(offsetof(Head, stamp) % StampStore::required_alignment == 0);
static_assert(alignof(Turn) % StampStore::required_alignment == 0 && offsetof(Turn, stamp) == 0);
static_assert(alignof(SlotState) % StampStore::required_alignment == 0 && offsetof(SlotState, stamp) == 0);

// A 64-bit number as a size in memory; nothing if it is greater than `most`.
constexpr std::optional<size_t> SizeWithin(uint64_t number, size_t most) {
  if (number > most) return std::nullopt;
  return static_cast<size_t>(number);
}
// What may be mapped at once.
inline constexpr size_t kMostMapped = PTRDIFF_MAX;

// Offsets of the parts; 64 bits so that those of an untrusted geometry do not overflow.
struct Regions {
  uint64_t slots;
  uint64_t buffer;
  uint64_t smallBlocks;
  uint64_t largeBlocks;
  uint64_t end;
};

constexpr Regions RegionsOf(const Geometry &geometry) {
  constexpr auto align = [](uint64_t size) { return (size + kLargeBlock - 1) / kLargeBlock * kLargeBlock; };
  Regions regions{};
  regions.buffer = align(sizeof(Head));
  regions.slots = regions.buffer + align(geometry.bufferBytes);
  regions.smallBlocks = regions.slots + align(uint64_t{geometry.slots} * kSlotBytes);
  regions.largeBlocks = regions.smallBlocks + align(uint64_t{geometry.smallBlocks} * kSmallBlock);
  regions.end = regions.largeBlocks + uint64_t{geometry.largeBlocks} * kLargeBlock;
  return regions;
}

// Of two versions the valid one; null if neither is.
template <typename State>
const State *ValidOf(const std::array<State, 2> &versions, uint64_t committed) {
  const State *valid = nullptr;
  for (const State &version : versions) {
    if (version.stamp <= committed && (valid == nullptr || version.stamp > valid->stamp)) valid = &version;
  }
  return valid;
}

}  // namespace zor::daemon::journal

#endif
