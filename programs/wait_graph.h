// Which daemons wait for each other, from the message server's knowledge: the requests that it forwarded and saw no
// reply to, and the messages that daemons have not read yet.
//
// A daemon that waits for a reply sends nothing until it arrives. So it waits for its latest message, if that is a
// request without a reply; older ones it has given up, or sent without waiting. Following these from daemon to daemon
// ends at a daemon that does not wait, at an absent one, or at one that is already in the chain: a cycle, which is
// blocked. A daemon that waits also reads incoming messages, so the chain also ends at one that does not read.
//
// Messages that need no reply look like requests. Those of known types are ignored; for other types only their users
// know, and the verdict names its assumption.
#ifndef PROGRAMS_WAIT_GRAPH_H
#define PROGRAMS_WAIT_GRAPH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace zor::daemon {

// Whether the sender of a request waits for the reply: not if it has sent a message since or sleeps in its loop,
// perhaps if the type of the request is unknown.
enum class Waits { kNo, kPerhaps, kYes };

// The same for a message with a sequence number; no value for one of a known type that needs no reply. `latest`: the
// sender has sent no message since; `inLoop`: it sleeps in its loop.
std::optional<Waits> WaitsForReply(uint32_t type, bool latest, bool inLoop);

// A request without a reply yet.
struct PendingRequest {
  std::string to;  // empty: the server's barrier
  uint32_t type = 0;
  uint32_t sequence = 0;
  uint64_t ageMs = 0;
  Waits waits = Waits::kYes;
};

struct Daemon {
  std::string name;
  int pid = 0;                          // 0: it runs on another board
  char state = '?';                     // of its process, as in /proc; '?': unknown
  uint64_t unread = 0;                  // messages that it has not read
  bool unreadAtLeast = false;           // there may be more
  uint64_t unreadMs = 0;                // the age of the oldest
  uint64_t refused = 0;                 // messages that did not fit its queue, since it does not read
  uint64_t refusedMs = 0;               // the age of the latest
  std::vector<PendingRequest> pending;  // the newest last

  // The request that it waits for; null if it does not wait.
  const PendingRequest *Awaited() const;
};

// The daemon with that name, or the longest-registered of several, which receives the messages; null without any.
const Daemon *FindDaemon(const std::vector<Daemon> &daemons, std::string_view name);

// A chain of daemons, each but the last waiting for the next. Points into the daemons given.
struct WaitChain {
  std::vector<const Daemon *> daemons;
  std::optional<std::string> absent;  // the last one waits for this name, which no daemon has; empty: at a barrier
  std::optional<size_t> cycle;        // the last one waits for the daemon at this index
};

// The chain that starts at this daemon.
WaitChain FollowWaits(const std::vector<Daemon> &daemons, const Daemon &start);

// The number of requests to a daemon whose senders wait, and the age of the oldest.
struct RequestsTo {
  size_t count = 0;
  uint64_t oldestMs = 0;
  std::set<uint32_t> doubtful;  // unknown types among them
};
RequestsTo CountRequestsTo(const std::vector<Daemon> &daemons, std::string_view name);

// Why the first daemon of the chain does not reply, as one sentence without its full stop; `asked` are the requests to
// it.
std::string Verdict(const WaitChain &chain, const RequestsTo &asked);

// The cycle that the chain ends in, with the types of its requests, as one sentence without its full stop.
std::string CycleText(const WaitChain &chain);

// "no", "perhaps", "yes".
std::string_view WaitsText(Waits waits);

// A state of a process as a word: "sleeping", "stopped".
std::string_view StateText(char state);

}  // namespace zor::daemon

#endif
