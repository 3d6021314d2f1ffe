// Barriers between processes: a wait is answered when somebody posts the barrier's name.
//
// A post releases everybody who waits for that name. When nobody waits it is remembered, once, and lets the next wait
// through, so that it does not matter which of two daemons comes first. A client waits for one barrier at a time: a new
// wait replaces one that its sender has given up.
#ifndef MSGSVR_BARRIER_H
#define MSGSVR_BARRIER_H

#include <cstdint>
#include <deque>
#include <vector>

#include "msgsvr/names.h"

namespace zor::msgsvr {

class Barriers {
 public:
  struct Waiter {
    Client *client;
    AppName name;
    uint32_t sequence;  // of the request to answer
    uint32_t sinceMs;
    uint32_t ordinal;  // of the request among the client's messages
  };

  // True when a remembered post lets the client through at once; otherwise it waits.
  bool Wait(const Waiter &waiter);
  // Those whom the post releases.
  std::vector<Waiter> Post(const AppName &name);
  void Forget(const Client &client);
  const std::vector<Waiter> &waiters() const { return waiters_; }

 private:
  std::vector<Waiter> waiters_;
  std::deque<AppName> posts_;
};

}  // namespace zor::msgsvr

#endif
