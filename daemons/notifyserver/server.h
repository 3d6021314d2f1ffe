// The event loop: accepts connections, reads frames and flushes output queues. Everything is non-blocking; one turn
// reads at most one buffer from each client, so that no client starves another.
//
// A server takes over from another one, which has handed over or has crashed: it makes the same clients from records,
// and then goes on as if it had always been there.
#ifndef NOTIFYSERVER_SERVER_H
#define NOTIFYSERVER_SERVER_H

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "notifyserver/client.h"
#include "notifyserver/intake.h"
#include "notifyserver/limits.h"
#include "notifyserver/router.h"
#include "notifyserver/server_state.h"
#include "programs/access/guard.h"
#include "programs/accounts.h"
#include "programs/descriptor_set.h"
#include "programs/event_poll.h"
#include "programs/exit_code.h"
#include "programs/local_socket.h"
#include "programs/problem_log.h"
#include "programs/server_main.h"
#include "programs/service_manager.h"
#include "programs/stop_signal.h"
#include "programs/succession.h"

namespace zor::notifyserver {

// How many clients a server can take over.
size_t MostTakenOver(const Limits &limits);
// Null, with a line, if there is no memory.
std::unique_ptr<daemon::Journal> NewJournal(const Limits &limits, daemon::ProblemLog &log);

class Server {
 public:
  // The journal must outlive it.
  Server(const Limits &limits, access::Rules rules, daemon::Journal &journal, const daemon::ProgramImage &image,
         daemon::ProblemLog &log, bool verbose);

  // Listens on the fixed path, and takes over what another server has left. Logs failures. `inherited` has the
  // descriptors that this process was executed with; `start.passed` those from the service manager.
  daemon::ExitCode Open(daemon::Start &start, daemon::DescriptorSet inherited);
  // Serves until a stop signal arrives.
  void Run();

 private:
  using Clients = std::unordered_map<const Client *, std::unique_ptr<Client>>;

  // server.cpp. Turn is false once the stop signal has arrived.
  bool Turn();
  void HandleEvents(std::span<const epoll_event> events);
  void TakeSignals();
  int TimeoutMs() const;
  void Accept();
  // May throw std::bad_alloc.
  void Admit(UniqueFd socket);
  Client &Add(std::unique_ptr<Client> client);
  // Whether there is room for one more connection of that process, perhaps at the expense of another.
  bool HasRoomFor(const daemon::Holder &newcomer);
  void PauseListening(bool on);
  void Serve(Client &client, uint32_t events);
  // Reads or resumes, after which the client may have ended for want of memory.
  void TakeIn(Client &client, void (Intake::*work)(Client &));
  void EndUnregistered();
  void EndLargest();
  void ReleaseEnded();
  void Forget(const Client &client);
  void LogEnd(const Client &client);

  // take_over.cpp
  bool Watch();
  daemon::ExitCode TakeOver(const daemon::Inheritance &inheritance, daemon::DescriptorSet &descriptors);
  void TakeOverCrashed(std::vector<daemon::PassedDescriptor> &passed);
  void Restore(ServerState &state, daemon::DescriptorSet &descriptors);
  void RestoreClient(const ClientRecord &record, daemon::DescriptorSet &descriptors);

  // hand_over.cpp
  void BeginHandOver();
  void ContinueHandOver();
  UniqueFd WriteState();
  void RefuseOwed();

  // farewell.cpp
  void SayFarewell();

  const Limits limits_;
  daemon::ProblemLog &log_;
  daemon::ServerSignals signals_;
  daemon::Watchdog watchdog_;
  daemon::LocalSocket listener_;
  daemon::EventPoll poll_;
  daemon::Accounts accounts_;  // outlives the clients, as does the guard
  access::Guard guard_;
  daemon::Journal &journal_;
  Surroundings shared_;
  Router router_;
  Intake intake_;
  daemon::Succession succession_;
  uint64_t lastId_ = 0;
  Clients clients_;
  bool listeningPaused_ = false;
  bool stopped_ = false;
  bool handOverWanted_ = false;
  // When the next connection that has not registered is overdue.
  Client::Clock::time_point registrationCheck_ = Client::Clock::time_point::max();
};

}  // namespace zor::notifyserver

#endif
