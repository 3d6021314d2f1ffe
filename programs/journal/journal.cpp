#include "programs/journal/journal.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "programs/journal/names.h"

namespace zor::daemon {
namespace {

using journal::Geometry;

// A part of a message that has been sent must be followed by its rest, also when the blocks are used up.
constexpr uint32_t kReservedBlocks = 32;
constexpr size_t kLeastBlocks = size_t{4} * kReservedBlocks;
// The longest records need about 70 small blocks, nearly all of them one.
constexpr size_t kRecordBlocks = 4;
constexpr size_t kLongRecordBlocks = 16384;

// The process is killed at an instruction or inside a system call, so the order in which this thread stores is all that
// matters: the compiler must keep it.
void KeepOrder() {
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

uint32_t InGroups(size_t count) {
  constexpr size_t kGroup = 16, kMost = 1u << 26;
  return static_cast<uint32_t>((std::min(count, kMost) + kGroup - 1) / kGroup * kGroup);
}

Geometry GeometryOf(const Journal::Size &size) {
  Geometry geometry{};
  geometry.slots = InGroups(size.clients);
  geometry.smallBlocks = InGroups(size.clients * kRecordBlocks + kLongRecordBlocks);
  geometry.largeBlocks = InGroups(std::max(size.bytes / journal::kLargeBlock, kLeastBlocks) + kReservedBlocks);
  geometry.bufferBytes = static_cast<uint32_t>(size.bufferBytes);
  return geometry;
}

uint64_t Now() {
  timespec now{};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace

std::unique_ptr<Journal> Journal::Create(std::string_view program, const Size &size) {
  const Geometry geometry = GeometryOf(size);
  const journal::Regions regions = journal::RegionsOf(geometry);
  const auto length = journal::SizeWithin(regions.end, journal::kMostMapped);
  errno = ENOMEM;
  if (!length) return nullptr;
  UniqueFd fd(::memfd_create(journal::kNamePrefix, MFD_CLOEXEC));
  if (!fd.valid() || ::ftruncate(fd.get(), static_cast<off_t>(regions.end)) != 0 ||
      ::fallocate(fd.get(), 0, 0, static_cast<off_t>(regions.slots)) != 0) {
    return nullptr;
  }
  void *mapped = ::mmap(nullptr, *length, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, fd.get(), 0);
  if (mapped == MAP_FAILED) return nullptr;
  const std::span mapping(static_cast<std::byte *>(mapped), *length);
  return std::unique_ptr<Journal>(new Journal(std::move(fd), mapping, journal::ProgramTag(program), geometry));
}

Journal::Journal(UniqueFd fd, std::span<std::byte> mapping, uint64_t program, const Geometry &geometry)
    : fd_(std::move(fd)),
      mapping_(mapping),
      geometry_(geometry),
      slots_(fd_.get(), mapping.data() + journal::RegionsOf(geometry).slots, journal::RegionsOf(geometry).slots,
             journal::kSlotBytes, geometry.slots, 0),
      smallBlocks_(fd_.get(), mapping.data() + journal::RegionsOf(geometry).smallBlocks,
                   journal::RegionsOf(geometry).smallBlocks, journal::kSmallBlock, geometry.smallBlocks, 0),
      largeBlocks_(fd_.get(), mapping.data() + journal::RegionsOf(geometry).largeBlocks,
                   journal::RegionsOf(geometry).largeBlocks, journal::kLargeBlock, geometry.largeBlocks,
                   kReservedBlocks) {
  journal::Head &head = this->head();
  head.layout = journal::kLayout;
  head.headBytes = sizeof head;
  head.program = program;
  head.generation = Now();
  head.geometry = geometry;
  head.stamp = committed_;
  head.magic = journal::kMagic;
}

Journal::~Journal() {
  ::munmap(mapping_.data(), mapping_.size());
}

std::string Journal::Name() const {
  return journal::NameOf(head().generation);
}

void Journal::SetComplete() {
  Commit();
  head().complete = 1;
}

// Most steps of a turn find that the one before has committed all there is.
void Journal::Commit() {
  if (!edited_) return;
  edited_ = false;
  KeepOrder();
  journal::StampStore(head().stamp).store(++committed_, std::memory_order_relaxed);
  KeepOrder();
  slots_.Committed();
  smallBlocks_.Committed();
  largeBlocks_.Committed();
}

std::span<std::byte> Journal::buffer() const {
  return {mapping_.data() + journal::RegionsOf(geometry_).buffer, geometry_.bufferBytes};
}

const journal::Turn &Journal::turn() const {
  return Latest(head().turns);
}

// The number comes first: while the rest is being copied the version is invalid.
template <typename State>
State &Journal::Edit(std::array<State, 2> &versions) {
  const State &latest = Latest(versions);
  State &edited = versions[&latest == &versions[0] ? 1 : 0];
  if (latest.stamp > committed_) return const_cast<State &>(latest);
  edited_ = true;
  journal::StampStore(edited.stamp).store(committed_ + 1, std::memory_order_relaxed);
  KeepOrder();
  std::memcpy(reinterpret_cast<std::byte *>(&edited) + sizeof edited.stamp,
              reinterpret_cast<const std::byte *>(&latest) + sizeof latest.stamp, sizeof edited - sizeof edited.stamp);
  return edited;
}

template journal::Turn &Journal::Edit(std::array<journal::Turn, 2> &versions);
template journal::SlotState &Journal::Edit(std::array<journal::SlotState, 2> &versions);

uint32_t Journal::ClaimSlot() {
  const uint32_t index = slots_.Allocate();
  if (index != journal::kNone) head().slotsUsed = std::max(head().slotsUsed, index);
  return index;
}

void Journal::ReleaseSlot(uint32_t index) {
  slots_.Release(index);
}

}  // namespace zor::daemon
