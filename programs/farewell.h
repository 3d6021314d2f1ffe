// The end of a server: what is queued is still delivered, as far as that is possible within a set time. Nothing that
// clients send any more is read.
#ifndef PROGRAMS_FAREWELL_H
#define PROGRAMS_FAREWELL_H

#include <chrono>
#include <cstddef>
#include <functional>

#include "programs/event_poll.h"
#include "programs/journal/slot.h"
#include "programs/stop_signal.h"

namespace zor::daemon {

// What a client has sent and nobody routes any more, in bytes: in its slot and its socket.
size_t UnroutedBytes(const JournalSlot &slot, int socket);

class Farewell {
 public:
  using Clock = std::chrono::steady_clock;

  // The signals must outlive it.
  explicit Farewell(ServerSignals &signals) : signals_(signals) {}

  // A client that has something queued. Without memory it is left out.
  void Add(int socket, void *client) { poll_.Add(socket, EPOLLOUT, client); }
  void Remove(int socket) { poll_.Remove(socket); }

  // Calls flush(client) whenever its socket has become writable, until there is nothing to wait for, the time is over,
  // or a second stop signal arrives. flush removes one that needs nothing, or can take nothing, any more.
  void Say(Clock::duration time, const std::function<bool()> &somethingQueued,
           const std::function<void(void *)> &flush);

 private:
  ServerSignals &signals_;
  EventPoll poll_;  // of output alone: the server's own would announce input and timers again and again
  bool hurried_ = false;
};

}  // namespace zor::daemon

#endif
