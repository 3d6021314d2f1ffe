// Senders that are not read for a moment because a client to which they send cannot keep up.
//
// Otherwise a fast sender would fill the queue of a slightly slower reader, and its messages would be refused. So a
// sender whose message takes a queue past its half is paused until that queue has drained to a quarter, but only for a
// short while, and not for a reader that makes no progress. Events pause nobody: a publisher never waits.
#ifndef MSGSVR_PAUSED_SENDERS_H
#define MSGSVR_PAUSED_SENDERS_H

#include <vector>

#include "msgsvr/client.h"

namespace zor::msgsvr {

class PausedSenders {
 public:
  bool empty() const { return pausedSenders_.empty(); }
  void Add(Client &sender, Client &reader, Clock::time_point now);
  // How far a reader has come: it changes when the reader reads.
  struct Progress {
    uint64_t flushes = 0;
    int unsent = 0;
    friend bool operator==(const Progress &, const Progress &) = default;
  };
  struct Pause {
    Client *sender;
    Client *reader;
    Clock::time_point until;
    Progress progress;
    Clock::time_point progressAt;
  };
  const std::vector<Pause> &pauses() const { return pausedSenders_; }
  // Of a sender that is not paused yet.
  void Restore(const Pause &pause);
  // Ends the pauses that are over and calls `resume` with their senders. Call it before ended clients are released.
  template <typename Resume>
  void Release(Clock::time_point now, Resume resume) {
    std::erase_if(pausedSenders_, [&](Pause &pause) {
      if (!IsOver(pause, now)) return false;
      pause.sender->paused = false;
      resume(*pause.sender);
      return true;
    });
  }

 private:
  static Progress ProgressOf(const Client &reader);
  static bool IsOver(Pause &pause, Clock::time_point now);

  std::vector<Pause> pausedSenders_;
};

}  // namespace zor::msgsvr

#endif
