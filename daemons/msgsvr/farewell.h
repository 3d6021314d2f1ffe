// The end of the server: what is queued is still delivered, as far as that is possible within a set time. Nothing that
// clients send any more is read.
#ifndef MSGSVR_FAREWELL_H
#define MSGSVR_FAREWELL_H

#include "msgsvr/delivery.h"
#include "programs/stop_signal.h"

namespace zor::msgsvr {

class Farewell {
 public:
  Farewell(Bus &bus, Delivery &delivery, daemon::ServerSignals &signals)
      : bus_(bus), delivery_(delivery), signals_(signals) {}

  // Delivers what is queued, until nothing is, the time is over, or a second stop signal arrives, and names the rest.
  void Say(Clock::duration time);

 private:
  bool SomethingQueued() const;
  void HandleEvents(int timeoutMs);
  void NameWhatIsLeft(Client &client) const;

  Bus &bus_;
  Delivery &delivery_;
  daemon::ServerSignals &signals_;
  daemon::EventPoll poll_;  // of output alone: the server's own would announce input and timers again and again
  bool hurried_ = false;
};

}  // namespace zor::msgsvr

#endif
