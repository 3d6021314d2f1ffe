// Senders that are not read for a moment because a client to which they send cannot keep up.
//
// Otherwise a fast sender would fill the queue of a slightly slower reader and get it cut off. So a sender whose
// message takes a queue past its half is paused until that queue has drained to a quarter, but only for a short while:
// a reader that has stopped does not stop its senders, and is soon cut off.
#ifndef MSGSVR_PAUSED_SENDERS_H
#define MSGSVR_PAUSED_SENDERS_H

#include <vector>

#include "msgsvr/client.h"

namespace zor::msgsvr {

class PausedSenders {
 public:
  bool empty() const { return pausedSenders_.empty(); }
  void Add(Client &sender, const Client &reader, Clock::time_point now);
  // Ends the pauses that are over and calls `resume` with their senders. Call it before ended clients are released.
  template <typename Resume>
  void Release(Clock::time_point now, Resume resume) {
    std::erase_if(pausedSenders_, [&](const Pause &pause) {
      if (!IsOver(pause, now)) return false;
      pause.sender->paused = false;
      resume(*pause.sender);
      return true;
    });
  }

 private:
  struct Pause {
    Client *sender;
    const Client *reader;
    Clock::time_point until;
  };
  static bool IsOver(const Pause &pause, Clock::time_point now);

  std::vector<Pause> pausedSenders_;
};

}  // namespace zor::msgsvr

#endif
