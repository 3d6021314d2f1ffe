// The state of the bus: the clients, and the tables by which messages reach them.
#ifndef MSGSVR_BUS_H
#define MSGSVR_BUS_H

#include <list>
#include <new>
#include <span>

#include "msgsvr/barrier.h"
#include "msgsvr/body_files.h"
#include "msgsvr/client.h"
#include "msgsvr/events.h"
#include "msgsvr/monitor.h"
#include "msgsvr/names.h"
#include "msgsvr/restful.h"
#include "msgsvr/settings.h"
#include "msgsvr/trace_overrides.h"
#include "programs/access/guard.h"
#include "programs/accounts.h"
#include "programs/event_poll.h"
#include "programs/memory_reserve.h"
#include "programs/problem_log.h"
#include "programs/recorder/recorder.h"

namespace zor::msgsvr {

// A message whose receiver ended without reading it.
struct Undelivered {
  uint64_t from;  // id of its sender
  uint32_t type;
  uint32_t sequence;
};

// A client has asked for the server to be replaced, and gets the reply when that has been done or refused.
struct RestartRequest {
  uint64_t client = 0;  // its id
  uint32_t type = 0;
  uint32_t sequence = 0;
};

struct Bus {
  // Of the record of the bus in the journal.
  static constexpr uint64_t kJournalOwner = UINT64_MAX;

  Bus(const BusSettings &busSettings, daemon::Journal &busJournal, std::string messageDirectory,
      daemon::ProblemLog &problemLog)
      : settings(busSettings),
        journal(busJournal),
        log(problemLog),
        accounts({busSettings.maxClients, busSettings.userClients, busSettings.userBytes, busSettings.memoryBytes}),
        files(std::move(messageDirectory)),
        traceOverrides(busSettings.traceOverridesFile, problemLog),
        slot_(busJournal, kJournalOwner) {
    if (!slot_.valid()) throw std::bad_alloc();
  }

  // Takes the client off the bus; messages that it has not read are lost. Its record stays until Sweep, so callers that
  // still hold it need only check `ended`. Ending a client twice has no effect.
  void End(Client &client);
  // Call it when writing to the client has failed: nothing reaches it any more, but what it has written before is read
  // and routed before it ends.
  void Deafen(Client &client, int error);
  // Whether Deafen has found any since the last call.
  bool TakeDeaf() { return std::exchange(someDeaf_, false); }
  // Runs a step of the server. False if there was no memory for it: then what it was for must be given up.
  template <typename Step>
  bool Try(Step step) {
    try {
      step();
      return true;
    } catch (const std::bad_alloc &) {
      reserve.Spend();
      return false;
    }
  }
  // The messages that clients have not read before they ended and whose senders can be told, since the last call.
  std::vector<Undelivered> TakeUndelivered() { return std::exchange(undelivered_, {}); }
  // Messages queued for the client, without copies and descriptors.
  static size_t MessagesFor(const Client &client);
  // Ends a client that has broken a rule, and logs the reason.
  void CutOff(Client &client, const char *reason);
  // Ends a client that does not read, where the settings say so; so many messages did not fit its queue.
  void CutOffSlow(Client &client, size_t refused);
  // Removes what the service manager keeps of an ended client.
  void Unstore(Client &client);
  // What has been noted of the client, or of the bus beside its clients, must be written down before it is replied to.
  void Changed(Client &client) { client.recordChanged = someChanged_ = true; }
  void Changed() { busChanged_ = true; }
  // Writes down in the journal what has changed; valid with its next commit.
  void WriteRecords() {
    if (someChanged_ || busChanged_) WriteChanged();
  }
  // Releases the clients that have ended.
  void Sweep();

  // Counts a message delivered to the client, including those of the server itself. Its sender, by id, is told if it
  // goes unread; 0: nobody is.
  void CountDelivery(Client &to, const ZOR_MSG_HEAD &head, uint64_t from) {
    to.deliveries.Add({static_cast<uint32_t>(sizeof head + head.bodyLength), nowMs, head.type & ZOR_MSG_TYPE_MASK,
                       head.sequence, from});
    to.slot.NoteUnread(to.deliveries.count() + to.unreadBefore);
    ++to.counters.out;
    ++counters.out;
    to.counters.outBytes += sizeof head + head.bodyLength;
    counters.outBytes += sizeof head + head.bodyLength;
  }
  // Forgets what the client has read, if it is time to ask the kernel. Everything counted must have been written.
  void ForgetRead(Client &client);
  // Forgets all: the client has shown that it has read everything.
  void ForgetAllRead(Client &client);
  // Removes old body files that belong to no message in transit.
  void SweepFiles();

  // Reads the clock once per turn, for everything that happens in it.
  void UpdateClock() {
    const Clock::time_point now = Clock::now();
    nowMs = static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now - started).count());
    nowUs =
        static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count());
  }

  // Lets the recorder know what time it is. Call it from time to time.
  void NoteWallClock();

  // The client with that id; null if it has disconnected.
  Client *Find(uint64_t id);

  const BusSettings &settings;
  daemon::Journal &journal;
  bool kept = false;     // the service manager keeps descriptors of clients over a crash
  bool verbose = false;  // log clients that register and leave
  daemon::ProblemLog &log;
  daemon::EventPoll poll;
  daemon::MemoryReserve reserve;
  daemon::Accounts accounts;
  access::Guard guard;  // outlives the clients that it has admitted
  BodyFiles files;
  TraceOverrides traceOverrides;
  std::list<Client> clients;  // oldest connection first
  uint64_t lastId = 0;        // of the newest client
  NameTable names;
  RestfulPatterns patterns;
  Barriers barriers;
  NamedSubscriptions subscriptions;
  Monitors monitors;
  Counters counters;
  Losses losses;
  std::optional<RestartRequest> restartFor;
  Clock::time_point started = Clock::now();
  uint32_t nowMs = 0;  // since `started`, modulo 2^32, as of this turn
  uint64_t nowUs = 0;  // of the steady clock, as of this turn
  recorder::Recorder recorder;

 private:
  void WriteChanged();
  void TakeOffTables(Client &client);
  void LoseUnread(Client &client);
  void RemoveLeftBehind();
  std::span<const Delivered> UnreadBy(Client &client);

  bool someEnded_ = false;
  bool someChanged_ = false;  // clients' records
  bool busChanged_ = true;
  daemon::JournalSlot slot_;
  bool someLost_ = false;
  bool someDeaf_ = false;
  std::vector<Undelivered> undelivered_;
};

}  // namespace zor::msgsvr

#endif
