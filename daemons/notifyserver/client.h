// A connection to the server and everything that the server stores for it.
//
// What the client must not lose is in the server's journal: its record, its input and its output. A message to it is
// always queued first and sent when the frame at work has been routed, so that a crash neither loses nor repeats it.
//
// A client may end in the middle of a turn of the loop, for example because its queue overflows while another client's
// frame is routed. So ending only marks the client and adds it to a list; it is released after the turn. Ending, naming
// and releasing a client take no memory, so that they work when there is none.
#ifndef NOTIFYSERVER_CLIENT_H
#define NOTIFYSERVER_CLIENT_H

#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "notifyserver/limits.h"
#include "notifyserver/record.h"
#include "programs/access/server_access.h"
#include "programs/accounts.h"
#include "programs/event_poll.h"
#include "programs/journal/journal.h"
#include "programs/journal/slot.h"
#include "programs/output_queue.h"

namespace zor::notifyserver {

class Client;

// What clients share. The lists have room for all clients.
struct Surroundings {
  daemon::EventPoll &poll;
  daemon::Journal &journal;
  daemon::Accounts &accounts;
  access::Guard &guard;
  const Limits &limits;
  std::vector<Client *> ended;
  std::vector<Client *> unflushed;  // have output that was not tried yet
  std::vector<std::byte> record;    // room to write one
};

class Client {
 public:
  using Clock = std::chrono::steady_clock;

  Client(UniqueFd socket, const ucred &peer, uint64_t id, Surroundings &surroundings);
  // As another server process wrote it down, but for its output; the record is valid.
  Client(UniqueFd socket, const ClientRecord &record, Surroundings &surroundings);
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  // False, with errno, if there is no memory for it.
  bool Watch();
  // Repeats the input and output of a record. False without memory.
  bool Restore(const ClientRecord &record);
  ClientRecord Record() const;
  // The name under which its socket is stored with the service manager.
  std::string StoredName() const;

  uint64_t id() const { return id_; }
  bool registered() const { return mid_ != 0; }
  uint32_t mid() const { return mid_; }
  uint64_t registration() const { return registration_; }
  int64_t since() const { return since_; }
  // Whether it has time-limited permission to be here without having registered.
  bool mustRegister() const { return !registered() && !isOperator_; }
  Clock::time_point connectedAt() const { return connectedAt_; }
  // Its name in log lines.
  class Text {
   public:
    const char *c_str() const { return text_.data(); }

   private:
    friend class Client;
    std::array<char, 64> text_{};
  };
  Text Label() const;
  // The process at the other end; user -1 if unknown.
  const ucred &peer() const { return peer_; }
  int socket() const { return socket_.get(); }
  // Who it is for the rules.
  access::Guard::Subject subject() const { return admission_.subject(); }
  daemon::JournalSlot &slot() { return slot_; }

  // Each changes its record in the journal; without memory for that it ends.
  void Register(uint32_t mid, uint64_t registration);
  void SetOperator(bool isOperator);
  void AddRequest(const Request &request);
  // Removes the requests that satisfy the predicate, oldest first, and calls visit(request) for each.
  template <typename Predicate, typename Visit>
  void RemoveRequests(Predicate &&matches, Visit &&visit) {
    if (std::erase_if(requests_, [&](const Request &request) { return matches(request) && (visit(request), true); }) >
        0) {
      SaveRecord();
    }
  }
  const std::vector<Request> &requests() const { return requests_; }

  // Queues a message; FlushAll sends it. A client that leaves too much unread is ended. False if the message is lost;
  // if the client is still reachable then, there was no memory to queue it.
  bool Deliver(std::span<const std::byte> message);
  // Sends as much of the queue as the socket accepts.
  void Flush();
  // Whether its queue might refuse the largest frame only because it was not flushed.
  bool NeedsFlush() const;

  // Ends the client. An empty reason means an ordinary disconnect; the text must outlive the client.
  void End(const char *reason = "");
  bool ended() const { return ended_; }
  // Whether messages can still reach it.
  bool reachable() const { return !ended_ && !outputBroken_; }
  // Whether more of its queue can be sent.
  bool hasQueued() const { return reachable() && !output_.empty(); }
  const char *reason() const { return reason_; }
  // Messages to it that are lost if it ends now.
  size_t Lost() const { return lost_ + (slot_.valid() ? output_.messageCount() : 0); }

  // Messages that it has not read yet.
  struct Unread {
    size_t bytes;     // in the queue
    size_t messages;  // in the queue
    size_t socket;    // memory that its socket takes up; 0: it has read everything written to it
  };
  Unread unread() const;

  // The memory that it takes up, as last charged.
  size_t held() const { return charge_.bytes(); }
  const daemon::Holder &holder() const { return charge_.holder(); }
  void UpdateCharge() { charge_.Set(slot_.memory()); }

  // The size of the frame whose start is its input; 0 if even that is not known.
  size_t awaited = 0;
  Counts counts;

 private:
  void SaveRecord();
  StandingRecord Standing() const;
  // After a send that failed, with errno.
  void BreakOutput();
  void WaitForOutput(bool on);

  UniqueFd socket_;
  const uint64_t id_;
  ucred peer_;
  Surroundings &shared_;
  access::Admission admission_;
  Clock::time_point connectedAt_ = Clock::now();
  daemon::Charge charge_;
  daemon::JournalSlot slot_;
  daemon::OutputQueue output_;
  uint32_t mid_ = 0;           // 0 until it has registered
  uint64_t registration_ = 0;  // order among all registrations
  int64_t since_ = 0;          // when it registered
  bool isOperator_ = false;    // its control request was granted
  std::vector<Request> requests_;
  bool unflushed_ = false;       // is in the list
  bool waitsForOutput_ = false;  // its socket is full
  bool outputBroken_ = false;
  bool ended_ = false;
  const char *reason_ = "";
  size_t lost_ = 0;
};

// Sends what was queued since the last call.
void FlushAll(Surroundings &surroundings);
// The same for clients whose queue might otherwise refuse a frame.
void FlushFull(Surroundings &surroundings);

}  // namespace zor::notifyserver

#endif
