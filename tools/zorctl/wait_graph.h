// Who waits for whom on the bus, from what the message server knows: the requests that it passed on and saw no answer
// to, and what daemons have not read yet.
//
// A daemon that waits for an answer sends nothing until it comes, so what it waits for is its latest message, if that
// is a request without an answer; older ones it has given up, or sent without waiting. Following these from daemon to
// daemon ends at one that does not wait, at one that is not there, or where it has been before: nobody in that circle
// goes on. Who waits also reads what comes meanwhile, so it ends at one that does not read as well, whatever it asked.
//
// Messages that want no answer look like requests. Those of known types are left out; whether those of other types are
// requests only their users know, and the verdict says so.
#ifndef ZORCTL_WAIT_GRAPH_H
#define ZORCTL_WAIT_GRAPH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace zor::ctl {

// Whether the sender of a request waits for the answer: not when it has sent something since or sleeps in its loop,
// perhaps when the type of the request is unknown.
enum class Waits { kNo, kPerhaps, kYes };

// A request without an answer yet.
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
  char state = '?';                     // of its process, as /proc has it; '?': unknown
  uint64_t unread = 0;                  // messages that wait for it to read
  bool unreadAtLeast = false;           // there may be more
  uint64_t unreadMs = 0;                // the age of the oldest
  std::vector<PendingRequest> pending;  // the newest last

  // The one that it waits for, if it waits for any; else null.
  const PendingRequest *Awaited() const;
};

// The daemon of that name, or the oldest of several, which gets the messages; null when there is none.
const Daemon *FindDaemon(const std::vector<Daemon> &daemons, std::string_view name);

// A chain of daemons, each but the last waiting for the next. Points into the daemons given.
struct WaitChain {
  std::vector<const Daemon *> daemons;
  std::optional<std::string> absent;  // the last one waits for this name, which nobody bears; empty: at a barrier
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

// What holds the first daemon of the chain up, as one sentence without its full stop; `asked` are the requests to it.
std::string Verdict(const WaitChain &chain, const RequestsTo &asked);

// "no", "perhaps", "yes".
std::string_view WaitsText(Waits waits);

// A state of a process as a word: "sleeping", "stopped".
std::string_view StateText(char state);

}  // namespace zor::ctl

#endif
