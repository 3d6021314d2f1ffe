// A connection to the server and all that the server holds for it.
#ifndef MSGSVR_CLIENT_H
#define MSGSVR_CLIENT_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "common/fd.h"
#include "common/output_queue.h"
#include "msgsvr/accounting.h"
#include "msgsvr/events.h"
#include "msgsvr/names.h"

namespace zor::msgsvr {

using Clock = std::chrono::steady_clock;

// Who is at the other end, as the kernel says.
struct Peer {
  bool local;  // on this machine: has credentials, can share files and descriptors
  uid_t uid;
  pid_t pid;
};

struct Client {
  Client(daemon::Fd connection, const Peer &other, uint64_t number, size_t queueBytes)
      : socket(std::move(connection)), peer(other), id(number), output(queueBytes) {}

  bool registered() const { return !name.empty(); }
  // Of its latest message, among all that came from it.
  uint32_t ordinal() const { return static_cast<uint32_t>(counters.in); }
  // How log lines call it.
  std::string Label() const;

  daemon::Fd socket;
  Peer peer;
  uint64_t id;
  AppName name;  // empty until the server has granted one

  std::vector<std::byte> partial;  // the start of a frame whose rest has not come yet
  daemon::Fd halfDescriptor;       // came with the first of its two bytes, which is all of `partial`
  daemon::OutputQueue output;
  uint64_t lastTarget = 0;  // id of the client that got its latest message

  std::time_t since = std::time(nullptr);
  Counters counters;
  PendingRequests pending;
  Deliveries deliveries;

  EventSet events;
  bool leaving = false;  // somebody has stopped it for good

  std::chrono::seconds reportPeriod{0};  // zero: it was not asked to report
  Clock::time_point lastReport;
  bool reportMissed = false;

  // The state of its connection in the event loop.
  bool ended = false;     // no longer on the bus; released at the end of the turn
  bool readable = false;  // may hold unread bytes
  bool queued = false;    // in the list of clients to read
  bool hungUp = false;    // the peer has closed: read to the end
  bool held = false;      // not read for a while, see PausedSenders
  bool flushing = false;  // its queue goes on when the socket is writable
};

}  // namespace zor::msgsvr

#endif
