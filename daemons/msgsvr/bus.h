// What is on the bus: the clients, and by what others reach them.
#ifndef MSGSVR_BUS_H
#define MSGSVR_BUS_H

#include <list>

#include "common/event_poll.h"
#include "common/problem_log.h"
#include "msgsvr/barrier.h"
#include "msgsvr/body_files.h"
#include "msgsvr/client.h"
#include "msgsvr/events.h"
#include "msgsvr/monitor.h"
#include "msgsvr/names.h"
#include "msgsvr/restful.h"
#include "msgsvr/settings.h"
#include "msgsvr/trace_overrides.h"

namespace zor::msgsvr {

struct Bus {
  Bus(const BusSettings &busSettings, std::string messageDirectory, daemon::ProblemLog &problemLog)
      : settings(busSettings),
        log(problemLog),
        files(std::move(messageDirectory)),
        traceOverrides(busSettings.keptFile, problemLog) {}

  // Takes the client off the bus; what is still queued for it is lost. Its record stays until Sweep, so that whoever
  // is at work with it needs to look at `ended` only. Nothing happens the second time.
  void End(Client &client);
  // Messages queued for the client, which are lost when it ends; copies and descriptors do not count.
  static size_t MessagesFor(const Client &client);
  // Ends a client that has broken a rule, and says so.
  void CutOff(Client &client, const std::string &reason);
  // Releases the clients that have ended.
  void Sweep();

  // Counts a message that the client is given now, the server's own included.
  void CountDelivery(Client &to, size_t bytes) {
    to.deliveries.Add(bytes, nowMs);
    ++to.counters.out;
    ++counters.out;
  }

  // Takes the time, once a turn, for all that happens in it.
  void TakeTime() {
    nowMs =
        static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started).count());
  }

  // The client of that id; null when it has gone.
  Client *Find(uint64_t id);

  const BusSettings &settings;
  bool verbose = false;  // say who comes and goes
  daemon::ProblemLog &log;
  daemon::EventPoll poll;
  BodyFiles files;
  TraceOverrides traceOverrides;
  std::list<Client> clients;  // the oldest connection first
  NameTable names;
  RestfulPatterns patterns;
  Barriers barriers;
  NamedSubscriptions subscriptions;
  Monitors monitors;
  Counters counters;
  Losses losses;
  Clock::time_point started = Clock::now();
  uint32_t nowMs = 0;  // since then, modulo 2^32, as of this turn

 private:
  bool someEnded_ = false;
};

}  // namespace zor::msgsvr

#endif
