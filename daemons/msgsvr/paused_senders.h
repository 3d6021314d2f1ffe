// Senders that are not read for a moment because a client to which they send cannot follow.
//
// A fast sender would otherwise fill the queue of a reader that is merely a bit slower, and get it cut off. So a sender
// whose message makes a queue pass its half waits until that queue has been read down to a quarter, but never longer
// than a short while: a reader that has stopped does not stop its senders, and is cut off soon.
#ifndef MSGSVR_PAUSED_SENDERS_H
#define MSGSVR_PAUSED_SENDERS_H

#include <vector>

#include "msgsvr/client.h"

namespace zor::msgsvr {

class PausedSenders {
 public:
  bool empty() const { return pausedSenders_.empty(); }
  void Add(Client &sender, const Client &reader, Clock::time_point now);
  // Ends the holds that are over and gives their senders to `released`; to be called before clients are released.
  template <typename Released>
  void Release(Clock::time_point now, Released released) {
    std::erase_if(pausedSenders_, [&](const Hold &hold) {
      if (!IsOver(hold, now)) return false;
      hold.sender->held = false;
      released(*hold.sender);
      return true;
    });
  }

 private:
  struct Hold {
    Client *sender;
    const Client *reader;
    Clock::time_point until;
  };
  static bool IsOver(const Hold &hold, Clock::time_point now);

  std::vector<Hold> pausedSenders_;
};

}  // namespace zor::msgsvr

#endif
