// Statistics of a client's traffic, from which operators' tools find out why a daemon does not reply. They are updated
// for every message, so each update takes negligible time and allocates nothing beyond the records below.
#ifndef MSGSVR_ACCOUNTING_H
#define MSGSVR_ACCOUNTING_H

#include <array>
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

  void Add(const Request &request);
  // Whether a message from that client is the reply to a pending request, which is then removed. The type must match;
  // a request with the same sequence number is preferred, but not required, because many daemons reply with a new
  // number and the library accepts that. The number alone proves nothing, since every process counts from 1.
  bool TakeReply(const AppName &from, uint32_t type, uint32_t sequence);
  // Removes a request that was not delivered.
  void Undo(uint32_t type, uint32_t sequence);
  // Newest last.
  const std::vector<Request> &requests() const { return requests_; }

 private:
  std::vector<Request> requests_;
};

// The messages most recently delivered to a client. They convert a number of unread bytes into a number of messages and
// the age of the oldest.
class Deliveries {
 public:
  struct Unread {
    uint64_t bytes;
    uint64_t messages;
    uint32_t oldestMs;  // age
    bool atLeast;       // the true values are larger: the record does not reach back far enough
  };

  // The time comes from the server's millisecond clock, which may wrap.
  void Add(size_t bytes, uint32_t nowMs) { latest_[next_++ % latest_.size()] = {static_cast<uint32_t>(bytes), nowMs}; }
  // Describes this many unread bytes, which hold at least `queued` messages.
  Unread UnreadOf(uint64_t bytes, size_t queued, uint32_t nowMs) const;

 private:
  struct Delivery {
    uint32_t bytes;
    uint32_t timeMs;
  };
  std::array<Delivery, limits::msgsvr::kDeliveries> latest_{};
  uint32_t next_ = 0;
};

// Messages lost when a daemon was cut off, kept until it reconnects.
class Losses {
 public:
  void Add(const AppName &name, uint64_t messages);
  uint64_t Take(const AppName &name);

 private:
  std::unordered_map<AppName, uint64_t, AppNameHash> byName_;
};

}  // namespace zor::msgsvr

#endif
