// The state of the whole server as records, which its successor reads. Records are plain: they own no descriptor and
// have no effect.
#ifndef NOTIFYSERVER_SERVER_STATE_H
#define NOTIFYSERVER_SERVER_STATE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "notifyserver/record.h"
#include "programs/journal/reader.h"
#include "programs/state_file.h"

namespace zor::notifyserver {

struct ServerRecord {
  int listener = -1;
  int lock = -1;
  int64_t started = 0;
  uint64_t lastId = 0;
  uint64_t lastRegistration = 0;
};

// The reply that a client gets when the server has been replaced.
struct OwedReplyRecord {
  uint64_t client = 0;  // its id
  uint32_t type = 0;
  uint32_t sequence = 0;
};

struct ServerState {
  ServerRecord server;
  std::vector<ClientRecord> clients;
  std::optional<OwedReplyRecord> owed;
  std::vector<uint64_t> unrouted;  // ids of clients whose input may hold whole frames
  size_t damaged = 0;              // records of clients that could not be read
};

// Writes a state: the server, then its clients one after the other, since each may be large, then what is owed.
daemon::StateWriter NewState();
void Add(daemon::StateWriter &state, const ServerRecord &record);
void Add(daemon::StateWriter &state, const ClientRecord &record);
void Add(daemon::StateWriter &state, const OwedReplyRecord &record);

// The state in such a file. Nothing, with the reason, if it is not understood; damaged records of clients are counted.
std::optional<ServerState> ReadState(std::span<const std::byte> file, std::string &problem);
// Why a server should not start with that state; empty if it may.
std::string ProblemOf(const ServerState &state);

// The state that a server left in its journal when it crashed. Sockets are not in it.
ServerState RecoverState(daemon::JournalContent content);

}  // namespace zor::notifyserver

#endif
