// The event loop. One turn: wait; accept connections, mark readable clients, flush the queues of writable ones; read
// each readable client once and route its frames; send the copies for monitors; check timers; release ended clients. A
// client with more to read is read again in the next turn, after the others.
#ifndef MSGSVR_SERVER_H
#define MSGSVR_SERVER_H

#include "common/unique_fd.h"
#include "msgsvr/bus.h"
#include "msgsvr/hand_over.h"
#include "msgsvr/input.h"
#include "msgsvr/newcomers.h"
#include "msgsvr/paused_senders.h"
#include "msgsvr/ready_list.h"
#include "msgsvr/router.h"
#include "msgsvr/traffic_watch.h"
#include "programs/descriptor_set.h"
#include "programs/service_manager.h"
#include "programs/stop_signal.h"

namespace zor::msgsvr {

// Connections that one listener accepts in one turn: peers that connect and disconnect in a loop must not starve the
// clients. Those that end in a turn keep their place until its end.
inline constexpr int kNewcomersPerTurn = 64;

class Server {
 public:
  // The listeners' descriptors must outlive the server.
  Server(Bus &bus, daemon::ServerSignals &signals, const ListenersRecord &listeners, const daemon::ProgramImage &image);

  // Continues what another process has begun: call it before Run.
  void TakeOver(const ServerState &state, daemon::DescriptorSet &descriptors);
  // From now on the service manager keeps what a crash must not lose; these are what it kept before. Call it before
  // Run.
  void KeepJournal(const std::vector<daemon::PassedDescriptor> &passed);
  // Replies to who asked for that.
  void Confirm(const daemon::Inheritance &inherited) { HandOver::Confirm(bus_, router_.delivery(), inherited); }
  // Sets up what the loop waits for. False, with errno, if the server cannot run.
  bool Watch();
  // Runs until the stop signal.
  void Run();

 private:
  struct Listener {
    enum class Of { kProcesses, kBoards, kTunnel };
    int fd;
    Of peers;
  };

  void Turn();
  void TakeSignal();
  template <typename Step>
  void ContinueHandOver(Step step);
  void HandleEvent(const epoll_event &event);
  void Accept(const Listener &listener);
  void AcceptWithoutDescriptors(const Listener &listener);
  // May throw std::bad_alloc, with nothing changed.
  void Admit(UniqueFd socket, Listener::Of kind);
  static Peer PeerOf(int socket, Listener::Of kind);
  bool HasRoomFor(const daemon::Holder &newcomer);

  void MarkReadable(Client &client);
  void ReadReady();
  void Serve(Client &client);

  int TimeoutMs() const;
  void ReadDeaf();
  void CheckTimers();
  void CheckReports(Clock::time_point now);
  void EndUnregistered();
  void EndLargest();

  Bus &bus_;
  Router router_;
  Input input_{bus_, router_};
  TrafficWatch watch_;
  daemon::ServerSignals &signals_;
  daemon::Watchdog watchdog_;
  Listener local_;
  Listener tcp_;
  Listener tunnel_;
  UniqueFd spare_;  // closed for a moment to turn a connection away when the process has no descriptors left
  bool running_ = true;
  PausedSenders pausedSenders_;
  Clock::time_point reportsChecked_;
  Newcomers newcomers_{bus_.settings.registerTime};
  HandOver handOver_;
  bool tookOver_ = false;
  ReadyList ready_;
};

}  // namespace zor::msgsvr

#endif
