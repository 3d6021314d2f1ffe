// The state of the bus: the clients, and the tables by which messages reach them.
#ifndef MSGSVR_BUS_H
#define MSGSVR_BUS_H

#include <list>

#include "msgsvr/barrier.h"
#include "msgsvr/body_files.h"
#include "msgsvr/client.h"
#include "msgsvr/events.h"
#include "msgsvr/monitor.h"
#include "msgsvr/names.h"
#include "msgsvr/restful.h"
#include "msgsvr/settings.h"
#include "msgsvr/trace_overrides.h"
#include "programs/event_poll.h"
#include "programs/problem_log.h"

namespace zor::msgsvr {

struct Bus {
  Bus(const BusSettings &busSettings, std::string messageDirectory, daemon::ProblemLog &problemLog)
      : settings(busSettings),
        log(problemLog),
        files(std::move(messageDirectory)),
        traceOverrides(busSettings.traceOverridesFile, problemLog) {}

  // Takes the client off the bus; messages still queued for it are lost. Its record stays until Sweep, so callers that
  // still hold it need only check `ended`. Ending a client twice has no effect.
  void End(Client &client);
  // Messages queued for the client, without copies and descriptors.
  static size_t MessagesFor(const Client &client);
  // Ends a client that has broken a rule, and logs the reason.
  void CutOff(Client &client, const std::string &reason);
  // Releases the clients that have ended.
  void Sweep();

  // Counts a message delivered to the client, including those of the server itself.
  void CountDelivery(Client &to, size_t bytes) {
    to.deliveries.Add(bytes, nowMs);
    ++to.counters.out;
    ++counters.out;
  }

  // Reads the clock once per turn, for everything that happens in it.
  void UpdateClock() {
    nowMs =
        static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started).count());
  }

  // The client with that id; null if it has disconnected.
  Client *Find(uint64_t id);

  const BusSettings &settings;
  bool verbose = false;  // log clients that register and leave
  daemon::ProblemLog &log;
  daemon::EventPoll poll;
  BodyFiles files;
  TraceOverrides traceOverrides;
  std::list<Client> clients;  // oldest connection first
  NameTable names;
  RestfulPatterns patterns;
  Barriers barriers;
  NamedSubscriptions subscriptions;
  Monitors monitors;
  Counters counters;
  Losses losses;
  Clock::time_point started = Clock::now();
  uint32_t nowMs = 0;  // since `started`, modulo 2^32, as of this turn

 private:
  bool someEnded_ = false;
};

}  // namespace zor::msgsvr

#endif
