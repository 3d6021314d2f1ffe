// Reads the journal of a server that has ended without handing over. It may be damaged, or not a journal at all: every
// number in it is checked before it is used, and whatever contradicts itself makes the whole journal unusable.
#ifndef PROGRAMS_JOURNAL_READER_H
#define PROGRAMS_JOURNAL_READER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "programs/journal/layout.h"

namespace zor::daemon {

struct JournalMessage {
  std::vector<std::byte> bytes;
  size_t sent;
  bool hadDescriptor;  // that was not sent, and is lost
};

struct JournalClient {
  uint32_t slot;
  uint64_t id;
  std::vector<std::byte> record;
  std::vector<std::byte> input;
  std::vector<JournalMessage> output;
  journal::Notes notes;
  uint32_t unread;
};

// The work that was under way. Offsets are into `buffer`, and are consistent with each other.
struct JournalTurn {
  journal::Turn state;
  std::vector<std::byte> buffer;  // what was in it, from its start; empty without a reader
  bool readDescriptor;            // its last bytes came with a descriptor, which is lost
  uint32_t frameAt;
  bool crashed;    // by itself: it was not killed
  size_t written;  // bytes, by the write or flush under way
};

struct JournalContent {
  std::vector<JournalClient> clients;  // by slot
  JournalTurn turn;

  // The client in that slot; null if there is none.
  JournalClient *InSlot(uint32_t slot);
};

// Nothing if it cannot be used; `problem` then says why. `program` is that of Journal::Create.
std::optional<JournalContent> ReadJournal(int fd, std::string_view program, std::string &problem);

}  // namespace zor::daemon

#endif
