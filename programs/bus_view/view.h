// What two samples say together: rates of the daemons, who talks to whom, and who waits for whom.
//
// A rate is unknown where the samples do not belong together: a daemon that has registered since, a counter that has
// become smaller because the server or the daemon was started again, another process with the number of the old one.
#ifndef PROGRAMS_BUS_VIEW_VIEW_H
#define PROGRAMS_BUS_VIEW_VIEW_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "programs/bus_view/sample.h"

namespace zor::busview {

// Of something in a second.
using Rate = std::optional<double>;

struct Rates {
  Rate sent;
  Rate received;
  Rate sentBytes;
  Rate receivedBytes;
  Rate dropped;
  Rate cpu;  // of one processor: 1 is all of it
};

// Messages of a type from one name to another. Daemons of one name count together.
struct Edge {
  std::string from;
  std::string to;  // empty: the server
  uint32_t type = 0;
  double perSecond = 0;
};

// All messages between two names, in either direction.
struct Pair {
  std::string first;   // sends more than the second
  std::string second;  // empty: the server
  double there = 0;    // messages a second from the first to the second
  double back = 0;

  double perSecond() const { return there + back; }
};

// A daemon that waits for the reply to a request.
struct Wait {
  size_t from = 0;           // index of the daemon
  std::optional<size_t> to;  // no value: a barrier, or an absent daemon
  std::string name;          // that it waits for; empty: a barrier
  uint32_t type = 0;
  uint64_t ageMs = 0;
  bool perhaps = false;  // the type is unknown, so the message may need no reply
  bool inCycle = false;

  // Requests that are merely under way have not lasted.
  bool lasts() const;
};

struct View {
  Rates server;
  std::vector<Rates> daemons;       // those of the sample's clients, in their order
  std::vector<Edge> edges;          // the fastest first
  std::vector<Pair> pairs;          // the fastest first
  std::vector<Wait> waits;          // in the order of the daemons, at most one each
  std::vector<std::string> cycles;  // each as one sentence
};

// `before` is null for the first sample: no rate is known then.
View MakeView(const Sample *before, const Sample &now);

// The name of one end of an edge, for users.
std::string NameOf(const std::string &end, const Server &server);

// A stopped process, one stopped by a debugger, or one that has exited without being reaped: it cannot resume by
// itself.
bool IsStopped(const Client &client);

}  // namespace zor::busview

#endif
