// What the server knows about a client's traffic: for those who ask why a daemon does not answer. Kept for every
// message, so that it costs no memory but its own and next to no time.
#ifndef MSGSVR_ACCOUNTING_H
#define MSGSVR_ACCOUNTING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "common/limits.h"
#include "msgsvr/names.h"

namespace zor::msgsvr {

// Messages, since the server or the connection began.
struct Counters {
  uint64_t in = 0;       // from a client
  uint64_t out = 0;      // given to a client
  uint64_t dropped = 0;  // reached nobody
};

// Requests that a client has sent and that nobody has answered. A request is a message with a sequence number; the
// oldest one is forgotten for a new one when there are too many, since one-way messages may carry numbers too.
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
  // Whether a message from that client answers one, which is pending no longer: one of its type, if possible with its
  // sequence number, though many daemons answer with a new one and the library takes that for the answer. The number
  // alone says nothing, since every process counts from 1.
  bool Answer(const AppName &by, uint32_t type, uint32_t sequence);
  // Forgets one that was not delivered.
  void Undo(uint32_t type, uint32_t sequence);
  // The newest last.
  const std::vector<Request> &requests() const { return requests_; }

 private:
  std::vector<Request> requests_;
};

// The latest messages that a client was given, which tell how many of them a number of unread bytes are, and how old.
class Deliveries {
 public:
  struct Unread {
    uint64_t bytes;
    uint64_t messages;
    uint32_t oldestMs;  // its age
    bool atLeast;       // there are more messages, and older ones
  };

  // The time is that of the server's clock in milliseconds, which may pass its greatest value.
  void Add(size_t bytes, uint32_t nowMs) { latest_[next_++ % latest_.size()] = {static_cast<uint32_t>(bytes), nowMs}; }
  // What so many bytes are that the client has not read, at least `queued` messages.
  Unread UnreadOf(uint64_t bytes, size_t queued, uint32_t nowMs) const;

 private:
  struct Delivery {
    uint32_t bytes;
    uint32_t timeMs;
  };
  std::array<Delivery, limits::msgsvr::kDeliveries> latest_{};
  uint32_t next_ = 0;
};

// Messages that were lost when a daemon was cut off, until it comes back.
class Losses {
 public:
  void Add(const AppName &name, uint64_t messages);
  uint64_t Take(const AppName &name);

 private:
  std::unordered_map<AppName, uint64_t, AppNameHash> byName_;
};

}  // namespace zor::msgsvr

#endif
