// The event loop: accepts connections, reads frames and flushes output queues. Everything is non-blocking; one turn
// reads at most one buffer from each client, so that no client starves another.
#ifndef NOTIFYSERVER_SERVER_H
#define NOTIFYSERVER_SERVER_H

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "notifyserver/client.h"
#include "notifyserver/limits.h"
#include "notifyserver/router.h"
#include "programs/accounts.h"
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
      : limits_(limits),
        log_(log),
        router_(limits, log, verbose),
        accounts_({limits.maxClients, limits.userClients, limits.userBytes, limits.memoryBytes}) {}

  // Listens on the fixed path. Logs failures.
  daemon::ExitCode Open();
  // Serves until a stop signal arrives.
  void Run();

 private:
  // False once the stop signal has arrived.
  bool Turn();
  void HandleEvents(std::span<const epoll_event> events);
  int TimeoutMs() const;
  void Accept();
  // May throw std::bad_alloc.
  void Admit(UniqueFd socket);
  // Whether there is room for one more connection of that process, perhaps at the expense of another.
  bool HasRoomFor(const daemon::Holder &newcomer);
  void PauseListening(bool on);
  void Serve(Client &client, uint32_t events);
  void ReadFrames(Client &client);
  void EndUnregistered();
  void EndLargest();
  void ReleaseEnded();
  void LogEnd(const Client &client);

  Limits limits_;
  daemon::ProblemLog &log_;
  daemon::StopSignal stop_;
  daemon::Watchdog watchdog_;
  daemon::LocalSocket listener_;
  daemon::EventPoll poll_;
  Router router_;
  daemon::Accounts accounts_;  // outlives the clients, as does the journal
  std::unique_ptr<daemon::Journal> journal_;
  uint64_t lastId_ = 0;
  std::unordered_map<const Client *, std::unique_ptr<Client>> clients_;
  std::vector<Client *> ended_;
  bool listeningPaused_ = false;
  bool stopped_ = false;
  // When the next connection that has not registered is overdue.
  Client::Clock::time_point registrationCheck_ = Client::Clock::time_point::max();
  std::array<std::byte, 65536> scratch_;
};

}  // namespace zor::notifyserver

#endif
