// A connection to the server and all that the server holds for it.
//
// A client ends in the middle of a turn of the loop, for instance because a message to it finds its queue full while
// another client's frame is routed. So ending only marks it and puts it on a list; it is released after the turn.
#ifndef NOTIFYSERVER_CLIENT_H
#define NOTIFYSERVER_CLIENT_H

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "common/event_poll.h"
#include "common/fd.h"
#include "common/output_queue.h"
#include "notifyserver/limits.h"

namespace zor::notifyserver {

class Client;

// A request on its way: who will answer it, and by what the answer is known.
struct Request {
  uint32_t type;
  uint32_t sequence;
  uint32_t module;  // as the requester addressed it
  const Client *answerer;
};

class Client {
 public:
  // The client adds itself to ended when it has ended.
  Client(daemon::Fd socket, daemon::EventPoll &poll, std::vector<Client *> &ended, const Limits &limits);
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  bool Watch() { return poll_.Add(socket_.get(), EPOLLIN, this); }

  bool registered() const { return mid != 0; }
  // How log lines call it.
  std::string Label() const;
  // Who is at the other end; nobody when the system does not say.
  const ucred &peer() const { return peer_; }

  // Reads what has come, at most as much as the scratch space holds. End of file ends the client.
  void Read(std::span<std::byte> scratch);
  // What has been read and not yet consumed.
  std::span<std::byte> input() { return std::span(input_).subspan(consumed_); }
  void Consume(size_t count) { consumed_ += count; }
  // Forgets what has been consumed.
  void CompactInput();

  // Sends a message, at once as far as the socket takes it. A client that leaves too much unread is ended.
  void Deliver(std::span<const std::byte> message);
  // Sends what is queued, as far as the socket takes it.
  void Flush();

  // Ends the client. An empty reason is an ordinary end.
  void End(std::string reason = "");
  bool ended() const { return ended_; }
  // Whether a message may still reach it.
  bool reachable() const { return !ended_ && !outputBroken_; }
  const std::string &reason() const { return reason_; }
  // Messages to it that were or would be lost if it ended now.
  size_t Lost() const { return lost_ + output_.messages().size(); }

  // What it has not read yet.
  struct Waiting {
    size_t bytes;     // in the queue
    size_t messages;  // in the queue
    size_t socket;    // memory that its socket holds; 0: it has read everything that was written to it
  };
  Waiting waiting() const;

  uint32_t mid = 0;  // 0 until it has registered
  time_t since = 0;  // when it did
  std::deque<Request> requests;
  // Messages that it sent, that it got, and of those that it sent the ones that nobody got.
  struct Counts {
    uint64_t in = 0;
    uint64_t out = 0;
    uint64_t dropped = 0;
  } counts;

 private:
  void BreakOutput();
  void WaitForOutput(bool on);

  daemon::Fd socket_;
  daemon::EventPoll &poll_;
  std::vector<Client *> &endedClients_;
  ucred peer_;
  std::vector<std::byte> input_;
  size_t consumed_ = 0;
  daemon::OutputQueue output_;
  bool outputBroken_ = false;
  bool ended_ = false;
  std::string reason_;
  size_t lost_ = 0;
};

}  // namespace zor::notifyserver

#endif
