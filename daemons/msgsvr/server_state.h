// The state of the whole server as records, which its successor reads: of the sockets at which it listens, of the bus,
// and of each client. Records are plain: they own no descriptor and have no effect.
#ifndef MSGSVR_SERVER_STATE_H
#define MSGSVR_SERVER_STATE_H

#include <optional>
#include <string>
#include <vector>

#include "msgsvr/bus_record.h"
#include "msgsvr/client_record.h"
#include "msgsvr/newcomers.h"
#include "msgsvr/paused_senders.h"
#include "programs/state_file.h"

namespace zor::msgsvr {

// What a server consists of beside its sockets.
struct ServerParts {
  Bus &bus;
  Newcomers &newcomers;
  PausedSenders &pausedSenders;
  TrafficWatch &watch;
};

struct ListenersRecord {
  int local = -1;
  int lock = -1;
  int tcp = -1;
  std::string tcpSetting;  // the address that the settings asked for
  int boards = -1;
  std::string boardsSetting;  // the same as a path
  int recorder = -1;          // no listener: the latest frames
};

struct ServerState {
  ListenersRecord listeners;
  BusRecord bus;
  std::vector<ClientRecord> clients;  // oldest first
  std::optional<RestartRequest> restartFor;
  size_t damaged = 0;  // records of clients that could not be read
};

// Writes the state as a file, one record after the other, since together they may be as large as all that is queued.
class ServerStateWriter {
 public:
  ServerStateWriter(const ListenersRecord &listeners, const BusRecord &bus,
                    const std::optional<RestartRequest> &restartFor);
  void Add(const ClientRecord &client);
  // All descriptors in it.
  const std::vector<int> &descriptors() const { return descriptors_; }
  // The file; invalid, with errno, if it could not be made.
  UniqueFd Finish() { return file_.Finish(); }

 private:
  daemon::StateWriter file_;
  std::vector<int> descriptors_;
};

// Adds the records of all clients.
void AddClients(const ServerParts &server, ServerStateWriter &writer);

// The state in such a file, which must outlive it. Nothing, with the reason, if it is not understood; damaged records
// of clients are counted.
std::optional<ServerState> ReadState(std::span<const std::byte> file, std::string &problem);
// Why a server should not start with that state; empty if it may.
std::string ProblemOf(const ServerState &state);

}  // namespace zor::msgsvr

#endif
