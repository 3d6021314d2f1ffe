// What is written down of a client, so that another server process continues where this one stopped.
//
// The standing record has what a client has told the server once and would not repeat; it changes rarely, and the
// journal keeps it for the case of a crash. The full record adds what changes with every message, for a hand-over on
// request. Descriptors are numbers of descriptors of the process that reads the record; -1 for none. Times on the
// steady clock are in nanoseconds since the machine was started; those in milliseconds are the server's own clock.
// client_fields.h has their format.
#ifndef MSGSVR_CLIENT_RECORD_H
#define MSGSVR_CLIENT_RECORD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "msgsvr/bus.h"
#include "programs/fields.h"

namespace zor::msgsvr {

struct PatternRecord {
  uint64_t order = 0;  // among the lists of all clients
  std::string list;
};

struct BarrierRecord {
  uint64_t order = 0;  // among all that have waited
  AppName::Field name{};
  uint32_t sequence = 0;
  uint32_t sinceMs = 0;
  uint32_t ordinal = 0;
};

struct StandingRecord {
  uint64_t id = 0;
  AppName::Field name{};  // empty: not registered
  uint64_t registration = 0;
  bool local = false;
  uid_t uid = 0;
  pid_t pid = 0;
  std::time_t since = 0;
  std::vector<uint16_t> events;  // the bits that are set
  bool leaving = false;
  uint32_t reportSeconds = 0;
  int64_t lastReport = 0;
  bool reportMissed = false;
  EventGap::State gap;
  std::vector<PatternRecord> patterns;
  std::optional<BarrierRecord> barrier;
  std::optional<Monitors::State> monitor;
  std::optional<access::Identity> identity = {};  // none from a server that asked no rules
  bool throughTunnel = false;
  std::string board = {};  // its name; empty: not yet known, or not through the tunnel
  uint32_t boardAddress = 0;
  bool otherOrder = false;
};

struct QueuedRecord {
  daemon::FieldBytes bytes;
  size_t sent = 0;
  int descriptor = -1;
};

struct PauseRecord {
  uint64_t reader = 0;  // its id
  int64_t until = 0;
  int64_t progressAt = 0;
  uint64_t flushes = 0;
  int unsent = 0;
};

// What a crash leaves of the work for a client.
struct CrashRecord {
  uint64_t servedUpTo = 0;  // place of the last client that has got the first frame of the input
  uint32_t suspectAt = 0;   // offset in the input of the frame at which the server crashed
  uint32_t crashes = 0;     // how often
  uint32_t unread = 0;      // messages that the client had perhaps not read
};

struct ClientRecord {
  StandingRecord standing;
  int socket = -1;
  int halfDescriptor = -1;
  std::vector<std::byte> partial;
  bool backlog = false;  // it holds whole frames, and the descriptor belongs to its end
  size_t queueBytes = 0;
  std::vector<QueuedRecord> queue;
  uint64_t lastTarget = 0;
  Counters counters;
  std::vector<PendingRequests::Request> pending;
  Deliveries::State deliveries;
  Flows::State flows{};
  Refusals::State refusals;
  bool deaf = false;
  bool reset = false;
  bool hungUp = false;
  bool stalled = false;
  uint64_t flushes = 0;
  int unsentWhenStalled = 0;
  std::optional<PauseRecord> pause;
  std::optional<int64_t> registerBy;  // a newcomer's time is over then
  uint32_t unreadBefore = 0;
  CrashRecord crash;  // empty after a hand-over
};

StandingRecord StandingRecordOf(const Bus &bus, const Client &client);
// Everything except the pause and the newcomer's time, which the bus does not know.
ClientRecord ClientRecordOf(const Bus &bus, const Client &client);

// Why the record describes no client; null if it does. Descriptors are checked when they are taken.
const char *ProblemOf(const ClientRecord &record);

}  // namespace zor::msgsvr

#endif
