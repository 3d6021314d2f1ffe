// The event loop: accepts connections, reads frames and flushes output queues. Everything is non-blocking; one turn
// reads at most one buffer from each client, so that no client starves another.
#ifndef NOTIFYSERVER_SERVER_H
#define NOTIFYSERVER_SERVER_H

#include <array>
#include <cstddef>
#include <memory>
#include <unordered_map>
#include <vector>

#include "notifyserver/client.h"
#include "notifyserver/limits.h"
#include "notifyserver/router.h"
#include "programs/event_poll.h"
#include "programs/exit_code.h"
#include "programs/local_socket.h"
#include "programs/problem_log.h"
#include "programs/service_manager.h"
#include "programs/stop_signal.h"

namespace zor::notifyserver {

class Server {
 public:
  Server(const Limits &limits, daemon::ProblemLog &log, bool verbose)
      : limits_(limits), log_(log), router_(limits, log, verbose) {}

  // Listens on the fixed path. Logs failures.
  daemon::ExitCode Open();
  // Serves until a stop signal arrives.
  void Run();

 private:
  // False once the stop signal has arrived.
  bool Turn();
  void Accept();
  void PauseListening(bool on);
  void Serve(Client &client, uint32_t events);
  void ReadFrames(Client &client);
  void ReleaseEnded();
  void LogEnd(const Client &client);

  Limits limits_;
  daemon::ProblemLog &log_;
  daemon::StopSignal stop_;
  daemon::Watchdog watchdog_;
  daemon::LocalSocket listener_;
  daemon::EventPoll poll_;
  Router router_;
  std::unordered_map<const Client *, std::unique_ptr<Client>> clients_;
  std::vector<Client *> ended_;
  bool listeningPaused_ = false;
  std::array<std::byte, 65536> scratch_;
};

}  // namespace zor::notifyserver

#endif
