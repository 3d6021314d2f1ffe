// The bus at one moment: the message server's list, and what the system knows of the daemons' processes. The list is
// taken for hostile: a member that is missing or of the wrong type counts as unknown.
#ifndef PROGRAMS_BUS_VIEW_SAMPLE_H
#define PROGRAMS_BUS_VIEW_SAMPLE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/process_state.h"
#include "programs/wait_graph.h"

namespace zor::busview {

using Clock = std::chrono::steady_clock;
using Count = std::optional<uint64_t>;

// How the state of a process is found out; StateOf looks it up on this machine.
using ProcessReader = std::function<daemon::ProcessState(int pid)>;

// For a list of another machine.
inline daemon::ProcessState UnknownProcess(int) {
  return {};
}

// Counters of messages and bytes, from the daemon's side.
struct Traffic {
  Count sent;
  Count received;
  Count sentBytes;
  Count receivedBytes;
  Count dropped;
};

// What a client sends to another, at the rate that the server last measured.
struct Flow {
  std::string to;  // empty: the server
  uint32_t type = 0;
  uint64_t perSecond = 0;
};

struct Client {
  daemon::Daemon daemon;  // its name, process, unread messages and requests
  daemon::ProcessState process;
  std::string board;  // empty: this one
  uint64_t uid = 0;
  uint64_t since = 0;  // seconds since 1970
  uint64_t unreadBytes = 0;
  uint64_t heldBytes = 0;
  Traffic traffic;
  std::vector<uint32_t> events;
  std::vector<std::string> patterns;
  std::vector<Flow> flows;
};

struct Server {
  std::string name;
  int pid = 0;
  daemon::ProcessState process;
  uint64_t uptimeMs = 0;
  uint64_t clients = 0;
  uint64_t maxClients = 0;
  uint64_t heldBytes = 0;
  uint64_t memoryBytes = 0;  // that its clients may take up
  uint64_t stormRate = 0;    // messages a second, each way between two daemons; 0: no rate is a storm
  Traffic traffic;
};

struct Sample {
  Clock::time_point taken;
  Server server;
  std::vector<Client> clients;  // without the client that asked; the oldest connection first
};

// Nothing if the text is not a list.
std::optional<Sample> ReadSample(std::string_view list, Clock::time_point taken,
                                 const ProcessReader &process = daemon::StateOf);

}  // namespace zor::busview

#endif
