// Barriers between processes: a wait gets its reply when another client posts the barrier's name.
//
// A post releases all clients that wait for that name. A post without waiters is remembered, once, and lets the next
// wait through, so the two daemons may arrive in either order. A client waits for one barrier at a time: a new wait
// replaces one that the client has given up.
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
    uint32_t sequence;  // of the request that gets the reply
    uint32_t sinceMs;
    uint32_t ordinal;    // of the request among the client's messages
    uint64_t order = 0;  // among all that have waited, set by Wait
  };

  // True if a remembered post lets the client through at once; otherwise the client waits.
  bool Wait(const Waiter &waiter);
  // Returns the waiters that the post releases.
  std::vector<Waiter> Post(const AppName &name);
  void Forget(const Client &client);
  const std::vector<Waiter> &waiters() const { return waiters_; }
  // Posts without a waiter, oldest first.
  const std::deque<AppName> &posts() const { return posts_; }

 private:
  std::vector<Waiter> waiters_;
  std::deque<AppName> posts_;
  uint64_t lastOrder_ = 0;
};

}  // namespace zor::msgsvr

#endif
