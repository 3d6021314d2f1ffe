// What is written down of a client, so that another server process continues where this one stopped.
//
// The standing record is in the journal, for the case of a crash, and changes with a registration and with each
// request. The full record adds what the journal keeps in other ways, for a hand-over on request. Times on the steady
// clock are in nanoseconds since the machine was started. Tags are part of the format: a new field gets a new tag, and
// no tag changes its meaning.
#ifndef NOTIFYSERVER_RECORD_H
#define NOTIFYSERVER_RECORD_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "notifyserver/limits.h"
#include "programs/access/server_access.h"
#include "programs/fields.h"

namespace zor::notifyserver {

// Sockets of clients are stored with the service manager under this and their number.
inline constexpr char kStoredPrefix[] = "client-";

// A pending request: the client that will reply, and what identifies the reply.
struct Request {
  uint32_t type;
  uint32_t sequence;
  uint32_t module;  // as the requester addressed it
  uint32_t unused;
  uint64_t responder;  // its id
};
static_assert(sizeof(Request) == 24);

struct Counts {
  uint64_t in = 0;       // messages from the client
  uint64_t out = 0;      // messages to it
  uint64_t dropped = 0;  // messages from it that no client received
};

struct StandingRecord {
  uint64_t id = 0;
  uint32_t mid = 0;           // 0: not registered
  uint64_t registration = 0;  // order among all registrations
  int64_t since = 0;
  bool isOperator = false;
  uid_t uid = 0;
  pid_t pid = 0;
  int64_t connectedAt = 0;
  std::vector<Request> requests;
  std::optional<access::Identity> identity;  // missing in records of servers that asked no rules
};

struct QueuedRecord {
  std::vector<std::byte> bytes;
  size_t sent = 0;
};

struct ClientRecord {
  StandingRecord standing;
  int socket = -1;               // a descriptor of the process that reads the record
  std::vector<std::byte> input;  // unrouted
  uint32_t crashes = 0;          // of servers, on the first frame of the input
  size_t queueBytes = 0;         // at most
  std::vector<QueuedRecord> queue;
  bool outputBroken = false;
  size_t lost = 0;
  Counts counts;
};

template <typename Fields, daemon::OneOf<Counts> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.in);
  fields(2, record.out);
  fields(3, record.dropped);
}

template <typename Fields, daemon::OneOf<StandingRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.id);
  fields(2, record.mid);
  fields(3, record.registration);
  fields(4, record.since);
  fields(5, record.isOperator);
  fields(6, record.uid);
  fields(7, record.pid);
  fields(8, record.connectedAt);
  fields(9, record.requests);
  fields(10, record.identity);
}

template <typename Fields, daemon::OneOf<QueuedRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.bytes);
  fields(2, record.sent);
}

template <typename Fields, daemon::OneOf<ClientRecord> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.standing);
  fields(2, record.socket);
  fields(3, record.input);
  fields(4, record.crashes);
  fields(5, record.queueBytes);
  fields(6, record.queue);
  fields(7, record.outputBroken);
  fields(8, record.lost);
  fields(9, record.counts);
}

inline int64_t Nanoseconds(std::chrono::steady_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

inline std::chrono::steady_clock::time_point TimeOf(int64_t nanoseconds) {
  return std::chrono::steady_clock::time_point(
      std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::nanoseconds(nanoseconds)));
}

// Whether a client may register that module id.
bool MayRegister(uint32_t mid);

// Why the record describes no client; null if it does. The descriptor is checked when it is taken.
const char *ProblemOf(const ClientRecord &record);

}  // namespace zor::notifyserver

#endif
