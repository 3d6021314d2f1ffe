// A connection to the server and everything that the server stores for it.
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
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "notifyserver/limits.h"
#include "programs/accounts.h"
#include "programs/event_poll.h"
#include "programs/output_queue.h"

namespace zor::notifyserver {

class Client;

// A pending request: the client that will reply, and what identifies the reply.
struct Request {
  uint32_t type;
  uint32_t sequence;
  uint32_t module;  // as the requester addressed it
  const Client *responder;
};

class Client {
 public:
  using Clock = std::chrono::steady_clock;

  // The client adds itself to `ended`, which has room for it, when it ends.
  Client(UniqueFd socket, const ucred &peer, daemon::EventPoll &poll, std::vector<Client *> &ended,
         daemon::Accounts &accounts, daemon::Journal &journal, uint64_t id, const Limits &limits);
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  // False, with errno, if there is no memory for it.
  bool Watch();

  bool registered() const { return mid != 0; }
  // Whether it has time-limited permission to be here without having registered.
  bool mustRegister() const { return !registered() && !isOperator; }
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

  // Reads at most as much as the scratch space holds. End of file ends the client.
  void Read(std::span<std::byte> scratch);
  // The bytes read but not yet consumed.
  std::span<std::byte> input() { return std::span(input_).subspan(consumed_); }
  void Consume(size_t count) { consumed_ += count; }
  // Releases the consumed bytes.
  void CompactInput();

  // Sends a message, or queues what the socket does not accept. A client that leaves too much unread is ended. False if
  // the message is lost; if the client is still reachable then, there was no memory to queue it.
  bool Deliver(std::span<const std::byte> message);
  // Sends as much of the queue as the socket accepts.
  void Flush();

  // Ends the client. An empty reason means an ordinary disconnect; the text must outlive the client.
  void End(const char *reason = "");
  bool ended() const { return ended_; }
  // Whether messages can still reach it.
  bool reachable() const { return !ended_ && !outputBroken_; }
  const char *reason() const { return reason_; }
  // Messages to it that are lost if it ends now.
  size_t Lost() const { return lost_ + output_.messageCount(); }

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

  uint32_t mid = 0;         // 0 until it has registered
  bool isOperator = false;  // its control request was granted
  time_t since = 0;         // when it registered
  std::deque<Request> requests;
  struct Counts {
    uint64_t in = 0;       // messages from it
    uint64_t out = 0;      // messages to it
    uint64_t dropped = 0;  // messages from it that no client received
  } counts;

 private:
  bool Queue(std::span<const std::byte> message, size_t sent);
  // After a send that failed, with errno.
  void BreakOutput();
  void UpdateCharge();
  void WaitForOutput(bool on);

  UniqueFd socket_;
  daemon::EventPoll &poll_;
  std::vector<Client *> &endedClients_;
  ucred peer_;
  const Clock::time_point connectedAt_ = Clock::now();
  daemon::Charge charge_;
  std::vector<std::byte> input_;
  size_t consumed_ = 0;
  daemon::JournalSlot slot_;
  daemon::OutputQueue output_;
  bool outputBroken_ = false;
  bool ended_ = false;
  const char *reason_ = "";
  size_t lost_ = 0;
};

}  // namespace zor::notifyserver

#endif
