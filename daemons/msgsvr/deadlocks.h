// Deadlocks: daemons that wait for each other's replies in a circle. programs/wait_graph.h says when a daemon is
// assumed to wait.
//
// The requests alone show where a circle may be, which takes one pass over the clients. Whether its members really
// wait, the kernel must say: whether they read, and what their processes do. That is asked only once a circle has
// lasted for deadlock_seconds, and more rarely each time that it turns out to be none, as with daemons that have sent
// each other one-way messages of unknown types. The log names each circle once; again only after a member has sent a
// message or got its reply.
#ifndef MSGSVR_DEADLOCKS_H
#define MSGSVR_DEADLOCKS_H

#include <optional>
#include <utility>
#include <vector>

#include "msgsvr/bus.h"
#include "msgsvr/unread.h"
#include "programs/wait_graph.h"

namespace zor::msgsvr {

class Deadlocks {
 public:
  explicit Deadlocks(Bus &bus) : bus_(bus) {}

  // Whether a further look is needed even if no message arrives: requests may become old enough, or daemons begin to
  // read.
  bool Look();

  struct Member {
    uint64_t client = 0;   // its id
    uint32_t ordinal = 0;  // of the message that it waits for
    friend bool operator==(const Member &, const Member &) = default;
  };
  using Members = std::vector<Member>;  // from the oldest client on
  struct Circle {
    Members members;
    bool named = false;
    bool lasts = true;  // seen in the latest look
    uint32_t pauseMs = 0;
    uint32_t lookedMs = 0;
  };
  const std::vector<Circle> &circles() const { return circles_; }
  void Restore(std::vector<Circle> circles) { circles_ = std::move(circles); }

 private:
  // A client that may wait for another.
  struct Edge {
    const Client *from;
    const Client *to;
    const PendingRequests::Request *request;
    size_t walk = 0;  // that came through it first
  };

  bool CollectEdges();
  Edge *Find(const Client &from);
  void Walk(Edge &start, size_t walk);
  void Examine(const Edge &member);
  Circle &FindCircle(const Members &members);
  bool Name(const std::vector<const Edge *> &circle);
  daemon::Daemon Describe(const Edge &edge);

  Bus &bus_;
  std::vector<Edge> edges_;  // in the order of the clients
  std::vector<Circle> circles_;
  std::optional<UnreadBytes> kernel_;  // as of this look
};

}  // namespace zor::msgsvr

#endif
