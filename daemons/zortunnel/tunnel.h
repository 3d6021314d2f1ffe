// The tunnel's event loop. At the gateway it accepts boards, and connects each to the message server once it has proved
// who it is. On a board it accepts daemons, and leads each to the gateway through a connection of its own.
//
// What a stranger can take up is bounded: unfinished handshakes have a time, and when there are too many the oldest one
// of the address that has most of them makes room. Connections are bounded in all and for each certificate.
#ifndef ZORTUNNEL_TUNNEL_H
#define ZORTUNNEL_TUNNEL_H

#include <list>

#include "programs/event_poll.h"
#include "programs/problem_log.h"
#include "programs/service_manager.h"
#include "programs/stop_signal.h"
#include "zortunnel/connection.h"
#include "zortunnel/settings.h"

namespace zor::tunnel {

class Tunnel {
 public:
  Tunnel(const TunnelSettings &settings, tls::ContextPtr credentials, UniqueFd listener, daemon::ServerSignals &signals,
         daemon::ProblemLog &log, bool verbose)
      : settings_(settings),
        credentials_(std::move(credentials)),
        listener_(std::move(listener)),
        signals_(signals),
        log_(log),
        verbose_(verbose) {}

  // False, with errno, if it cannot run.
  bool Watch();
  // Runs until the stop signal.
  void Run();

 private:
  void TakeSignal();
  void Accept();
  void Admit(UniqueFd socket, const sockaddr_in &from);
  void Begin(UniqueFd other, UniqueFd plain, const sockaddr_in &address, Connection::State state);
  void MakeRoomForHandshake();

  void Advance(Connection &connection);
  void Established(Connection &connection);
  bool HasRoomFor(Connection &board);
  bool WatchSocket(int socket, Connection &connection);
  void ProbeOthersOf(const Connection &board);

  int TimeoutMs() const;
  void CheckDeadlines();
  void Sweep();
  void Report(const Connection &connection);
  void Pause(const Connection &connection);
  void PauseListening(std::chrono::milliseconds time);
  void Listen(bool on);

  const TunnelSettings &settings_;
  tls::ContextPtr credentials_;
  UniqueFd listener_;
  daemon::ServerSignals &signals_;
  daemon::ProblemLog &log_;
  bool verbose_;
  daemon::EventPoll poll_;
  daemon::Watchdog watchdog_;
  std::list<Connection> connections_;  // oldest first
  bool running_ = true;
  bool busy_ = false;  // some connection has more to move
  std::chrono::milliseconds pause_{0};
  std::optional<Clock::time_point> listenAgain_;
};

}  // namespace zor::tunnel

#endif
