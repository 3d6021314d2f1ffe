#include "programs/journal/blocks.h"

#include <fcntl.h>

#include <algorithm>
#include <bit>
#include <cerrno>

namespace zor::daemon::journal {
namespace {

constexpr uint32_t kKeptEmpty = 4;  // groups that keep their memory although they are empty

bool Allocate(int fd, int mode, uint64_t offset, uint64_t length) {
  int result;
  do {
    result = ::fallocate(fd, mode, static_cast<off_t>(offset), static_cast<off_t>(length));
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace

Blocks::Blocks(int fd, std::byte *base, uint64_t offset, uint32_t blockBytes, uint32_t count, uint32_t reserve)
    : fd_(fd),
      base_(base),
      offset_(offset),
      blockBytes_(blockBytes),
      count_(count),
      reserve_(std::min(reserve, count)),
      groups_((count + kGroup - 1) / kGroup) {}

uint32_t Blocks::Allocate(bool urgent) {
  if (used_ >= (urgent ? count_ : count_ - reserve_)) return kNone;
  while (lowest_ < groups_.size() && groups_[lowest_].used == FullMask(lowest_)) ++lowest_;
  if (lowest_ == groups_.size()) return kNone;
  Group &group = groups_[lowest_];
  if (group.backed == 0 && !Back(lowest_)) return kNone;
  if (group.used == 0) --emptyBacked_;
  const auto bit = static_cast<uint32_t>(std::countr_one(group.used));
  group.used = static_cast<uint16_t>(group.used | 1u << bit);
  ++used_;
  return lowest_ * kGroup + bit + 1;
}

void Blocks::Release(uint32_t index) {
  const uint32_t number = (index - 1) / kGroup;
  Group &group = groups_[number];
  if (group.released == 0) {
    group.nextReleased = released_ & 0x7fffffffu;
    released_ = number + 1;
  }
  group.released = static_cast<uint16_t>(group.released | 1u << (index - 1) % kGroup);
}

void Blocks::FreeReleased() {
  while (released_ != 0) {
    const uint32_t number = released_ - 1;
    Group &group = groups_[number];
    released_ = group.nextReleased;
    used_ -= static_cast<uint32_t>(std::popcount(group.released));
    group.used = static_cast<uint16_t>(group.used & ~group.released);
    group.released = 0;
    lowest_ = std::min(lowest_, number);
    if (group.used == 0 && ++emptyBacked_ > kKeptEmpty) GiveBack(number);
  }
}

// The last group may be shorter.
uint32_t Blocks::FullMask(uint32_t group) const {
  return (1u << std::min(kGroup, count_ - group * kGroup)) - 1;
}

bool Blocks::Back(uint32_t group) {
  if (!journal::Allocate(fd_, 0, OffsetOf(group), uint64_t{kGroup} * blockBytes_)) return false;
  groups_[group].backed = 1;
  ++emptyBacked_;
  return true;
}

// Where it fails the memory stays in use, which is no worse than before.
void Blocks::GiveBack(uint32_t group) {
  if (!journal::Allocate(fd_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, OffsetOf(group),
                         uint64_t{kGroup} * blockBytes_)) {
    return;
  }
  groups_[group].backed = 0;
  --emptyBacked_;
}

}  // namespace zor::daemon::journal
