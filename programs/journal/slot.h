// A client's place in the journal: its standing record and its unrouted input. Its output is in OutputQueue. Nothing
// here is committed; see Journal::Commit.
#ifndef PROGRAMS_JOURNAL_SLOT_H
#define PROGRAMS_JOURNAL_SLOT_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "programs/journal/journal.h"

namespace zor::daemon {

class JournalSlot {
 public:
  // Owners are known by id, which is not 0. Invalid if the journal has no room.
  JournalSlot(Journal &journal, uint64_t owner);
  JournalSlot(const JournalSlot &) = delete;
  JournalSlot &operator=(const JournalSlot &) = delete;
  // Gives up everything that it holds.
  ~JournalSlot();

  bool valid() const { return index_ != journal::kNone; }
  uint32_t index() const { return index_; }
  Journal &journal() const { return journal_; }

  // Replaces the record. False, with the old one kept, if there is no room.
  bool SetRecord(std::span<const std::byte> record);

  // False, with nothing changed, if there is no room.
  bool AppendInput(std::span<const std::byte> bytes);
  void ClearInput();
  size_t inputBytes() const { return static_cast<size_t>(state().input.bytes); }
  // Copies the input to the start of `to`, which has room for it.
  void CopyInput(std::span<std::byte> to) const;

  // Of what is noted besides.
  const journal::Notes &notes() const { return state().notes; }
  journal::Notes &EditNotes() { return edit().notes; }
  // How many messages the client has perhaps not read; valid at once.
  void NoteUnread(size_t messages) const { journal_.slot(index_).unread = static_cast<uint32_t>(messages); }

  // Memory that it takes up: blocks of the record, of the input and of the output.
  size_t memory() const;

  const journal::SlotState &state() const { return journal_.StateOf(index_); }
  journal::SlotState &edit() { return journal_.EditState(index_); }

 private:
  Journal &journal_;
  uint32_t index_;
};

namespace journal {

// Blocks linked one after the other, in which the bytes of chains and queues are.
struct Linked {
  uint32_t first = kNone;
  uint32_t last = kNone;
};
// So many blocks; none at all, with first == kNone, if they are not to be had.
Linked AllocateLinked(Blocks &blocks, size_t count, bool urgent);
void ReleaseLinked(Blocks &blocks, uint32_t first, uint32_t last);

}  // namespace journal
}  // namespace zor::daemon

#endif
