// Blocks of one size in a part of a journal. Which are free is not in the journal, since the next server makes a new
// one.
//
// A block that is released may still belong to the version of a slot that is valid until the next commit, so it becomes
// free only then. The lowest free block is used first; a group of blocks that has become empty gives its memory back,
// but for a few. Memory is asked for before it is used, because a page that cannot be had would end the process.
#ifndef PROGRAMS_JOURNAL_BLOCKS_H
#define PROGRAMS_JOURNAL_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "programs/journal/layout.h"

namespace zor::daemon::journal {

class Blocks {
 public:
  // In the file and its mapping, from that offset on; the last `reserve` blocks are for urgent needs.
  Blocks(int fd, std::byte *base, uint64_t offset, uint32_t blockBytes, uint32_t count, uint32_t reserve);

  // kNone if there is none left or no memory for it.
  uint32_t Allocate(bool urgent = false);
  void Release(uint32_t index);
  // Frees what has been released before.
  void Committed() {
    if (released_ != 0) FreeReleased();
  }

  std::byte *At(uint32_t index) const { return base_ + size_t{index - 1} * blockBytes_; }
  BlockHead &HeadOf(uint32_t index) const { return *reinterpret_cast<BlockHead *>(At(index)); }
  std::byte *PayloadOf(uint32_t index) const { return At(index) + sizeof(BlockHead); }
  uint32_t payload() const { return blockBytes_ - static_cast<uint32_t>(sizeof(BlockHead)); }
  uint32_t used() const { return used_; }
  uint32_t count() const { return count_; }
  uint32_t blockBytes() const { return blockBytes_; }

 private:
  static constexpr uint32_t kGroup = 16;  // blocks
  struct Group {
    uint16_t used = 0;        // a bit per block
    uint16_t released = 0;    // of the used ones, free with the next commit
    uint32_t backed : 1 = 0;  // has memory
    uint32_t nextReleased : 31 = 0;
  };

  void FreeReleased();
  uint32_t FullMask(uint32_t group) const;
  bool Back(uint32_t group);
  void GiveBack(uint32_t group);
  uint64_t OffsetOf(uint32_t group) const { return offset_ + uint64_t{group} * kGroup * blockBytes_; }

  int fd_;
  std::byte *base_;
  uint64_t offset_;
  uint32_t blockBytes_;
  uint32_t count_;
  uint32_t reserve_;
  uint32_t used_ = 0;
  uint32_t lowest_ = 0;       // no group before it has a free block
  uint32_t emptyBacked_ = 0;  // groups
  uint32_t released_ = 0;     // first group in the list of those with released blocks, counted from 1
  std::vector<Group> groups_;
};

}  // namespace zor::daemon::journal

#endif
