// Statistics of a client's traffic, from which operators' tools find out why a daemon does not reply. They are updated
// for every message, so each update takes negligible time and allocates nothing beyond the records below.
#ifndef MSGSVR_ACCOUNTING_H
#define MSGSVR_ACCOUNTING_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "msgsvr/names.h"
#include "programs/limits.h"

namespace zor::msgsvr {

// Messages since the server started or the client connected.
struct Counters {
  uint64_t in = 0;       // received from a client
  uint64_t out = 0;      // delivered to a client
  uint64_t dropped = 0;  // delivered to no client
  uint64_t inBytes = 0;  // of those messages, without bodies in files
  uint64_t outBytes = 0;
};

// Requests of a client that have no reply yet. Any message with a sequence number is taken for a request. Since one-way
// messages may carry numbers too, the list is bounded: a new request pushes out the oldest.
class PendingRequests {
 public:
  struct Request {
    AppName to;
    uint32_t type;
    uint32_t sequence;
    uint32_t sentMs;
    uint32_t ordinal;  // among the messages of its sender, modulo 2^32
  };

  // Makes room, so that adding one cannot fail afterwards. Throws std::bad_alloc.
  void Reserve() {
    if (requests_.size() == requests_.capacity()) requests_.reserve(2 * requests_.size() + 1);
  }
  void Add(const Request &request);
  // Whether a message from that client is the reply to a pending request, which is then removed. The type must match;
  // a request with the same sequence number is preferred, but not required, because many daemons reply with a new
  // number and the library accepts that. The number alone proves nothing, since every process counts from 1.
  bool TakeReply(const AppName &from, uint32_t type, uint32_t sequence);
  // Whether such a message would be a reply.
  bool HasRequest(const AppName &from, uint32_t type) const {
    return std::any_of(requests_.begin(), requests_.end(),
                       [&](const Request &request) { return request.type == type && request.to == from; });
  }
  // Removes a request that was not delivered.
  void Undo(uint32_t type, uint32_t sequence);
  // Newest last.
  const std::vector<Request> &requests() const { return requests_; }
  size_t HeldBytes() const { return requests_.capacity() * sizeof(Request); }

 private:
  std::vector<Request> requests_;
};

// Messages that daemons left unread when they were disconnected, kept until they reconnect.
class Losses {
 public:
  void Add(const AppName &name, uint64_t messages);
  uint64_t Take(const AppName &name);
  const std::unordered_map<AppName, uint64_t, AppNameHash> &byName() const { return byName_; }

 private:
  std::unordered_map<AppName, uint64_t, AppNameHash> byName_;
};

}  // namespace zor::msgsvr

#endif
