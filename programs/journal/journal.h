// What a server must not lose when it is killed: a file in memory, which the service manager's descriptor store keeps
// for the next server. Clients' standing records, their unrouted input and unsent output are there, and how far the
// work at hand has come. The output queues and the receive buffer are nowhere else, so that nothing is written twice.
//
// Changes are made through Edit... and become valid together with Commit, which costs one store. A server commits when
// the effects of a frame are complete: after a crash either all of them are there or the frame is routed again.
// layout.h describes the file; reader.h reads that of an earlier server.
#ifndef PROGRAMS_JOURNAL_JOURNAL_H
#define PROGRAMS_JOURNAL_JOURNAL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "common/unique_fd.h"
#include "programs/journal/blocks.h"
#include "programs/journal/layout.h"

namespace zor::daemon {

class Journal {
 public:
  struct Size {
    size_t clients;
    size_t bytes;        // of input and output, altogether
    size_t bufferBytes;  // of the receive buffer
  };

  // Null, with errno, if the system gave no memory. The program's name tells journals of different servers apart.
  static std::unique_ptr<Journal> Create(std::string_view program, const Size &size);
  Journal(const Journal &) = delete;
  Journal &operator=(const Journal &) = delete;
  ~Journal();

  int fd() const { return fd_.get(); }
  // The name in the descriptor store. Of two, the one with the greater number is newer.
  std::string Name() const;
  // Everything that an earlier journal held is in this one, so that it may take its place.
  void SetComplete();

  void Commit();

  // The receive buffer.
  std::span<std::byte> buffer() const;
  const journal::Turn &turn() const;
  journal::Turn &EditTurn() { return Edit(head().turns); }
  // The offset in the buffer of the frame at work, if a crash there should count against that frame.
  void SetFrameAt(size_t offset) const { head().frameAt = static_cast<uint32_t>(offset); }
  uint32_t &crashMark() const { return head().crashed; }
  mmsghdr &readMessage() const { return head().read; }
  mmsghdr &writeMessage() const { return head().write; }

  // For JournalSlot and OutputQueue.
  uint32_t ClaimSlot();
  void ReleaseSlot(uint32_t index);
  journal::Slot &slot(uint32_t index) const { return *reinterpret_cast<journal::Slot *>(slots_.At(index)); }
  const journal::SlotState &StateOf(uint32_t index) const { return Latest(slot(index).versions); }
  journal::SlotState &EditState(uint32_t index) { return Edit(slot(index).versions); }
  journal::Blocks &smallBlocks() { return smallBlocks_; }
  journal::Blocks &largeBlocks() { return largeBlocks_; }
  const journal::Blocks &largeBlocks() const { return largeBlocks_; }

 private:
  Journal(UniqueFd fd, std::span<std::byte> mapping, uint64_t program, const journal::Geometry &geometry);

  journal::Head &head() const { return *reinterpret_cast<journal::Head *>(mapping_.data()); }
  // The version with everything changed since the commit.
  template <typename State>
  static const State &Latest(const std::array<State, 2> &versions) {
    return versions[versions[1].stamp > versions[0].stamp ? 1 : 0];
  }
  template <typename State>
  State &Edit(std::array<State, 2> &versions);

  UniqueFd fd_;
  std::span<std::byte> mapping_;
  journal::Geometry geometry_;
  uint64_t committed_ = 1;
  bool edited_ = false;  // since the latest commit
  journal::Blocks slots_;
  journal::Blocks smallBlocks_;
  journal::Blocks largeBlocks_;
};

}  // namespace zor::daemon

#endif
