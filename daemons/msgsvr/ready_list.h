// The clients to read, in the order in which they became readable. The links lie in the clients, so that adding one
// takes no memory.
#ifndef MSGSVR_READY_LIST_H
#define MSGSVR_READY_LIST_H

#include <utility>

#include "msgsvr/client.h"

namespace zor::msgsvr {

class ReadyList {
 public:
  bool empty() const { return first_ == nullptr; }

  // Does nothing if it is in the list.
  void Add(Client &client) {
    if (client.queued) return;
    client.queued = true;
    client.nextReady = nullptr;
    (last_ == nullptr ? first_ : last_->nextReady) = &client;
    last_ = &client;
  }
  // Calls `read` with each client that is in the list now, without it; `read` may add any again.
  template <typename Read>
  void ForEach(Read read) {
    last_ = nullptr;
    for (Client *client = std::exchange(first_, nullptr); client != nullptr;) {
      Client *const next = std::exchange(client->nextReady, nullptr);
      client->queued = false;
      read(*client);
      client = next;
    }
  }
  // Call it before ended clients are released.
  void RemoveEnded() {
    ForEach([this](Client &client) {
      if (!client.ended) Add(client);
    });
  }

 private:
  Client *first_ = nullptr;
  Client *last_ = nullptr;
};

}  // namespace zor::msgsvr

#endif
