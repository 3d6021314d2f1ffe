// The event loop. One turn: wait; accept, note who is readable, write to those who take output again; read each
// readable client once and route what it sent; send what has been copied for monitors; look after time; release the
// clients that have ended. A client that still has something to read comes again in the next turn, after the others.
#ifndef MSGSVR_SERVER_H
#define MSGSVR_SERVER_H

#include <array>
#include <vector>

#include "common/fd.h"
#include "common/stop_signal.h"
#include "msgsvr/bus.h"
#include "msgsvr/input.h"
#include "msgsvr/paused_senders.h"
#include "msgsvr/router.h"

namespace zor::msgsvr {

class Server {
 public:
  // The descriptors outlive the server; tcpListener is -1 when there is none.
  Server(Bus &bus, daemon::StopSignal &stop, int localListener, int tcpListener)
      : bus_(bus), router_(bus), stop_(stop), local_{localListener, true}, tcp_{tcpListener, false} {}

  // Runs until the stop signal. False, with errno, when it could not begin.
  bool Run();

 private:
  struct Listener {
    int fd;
    bool local;
  };

  bool Watch();
  void Turn();
  void TakeEvent(const epoll_event &event);
  void Accept(const Listener &listener);
  void AcceptWithoutDescriptors(const Listener &listener);
  void Admit(daemon::Fd socket, bool local);

  void MarkReadable(Client &client);
  void ReadReady();
  void Read(Client &client);
  void Take(Client &client, std::span<std::byte> bytes, Received &received);
  size_t TakeHalfDescriptor(Client &client, std::span<const std::byte> bytes);
  void TakeDescriptor(Client &client, std::span<const std::byte> rest, daemon::Fd descriptor);

  int TimeoutMs() const;
  void LookAfterTime();
  void CheckReports(Clock::time_point now);

  Bus &bus_;
  Router router_;
  daemon::StopSignal &stop_;
  Listener local_;
  Listener tcp_;
  daemon::Fd spare_;  // given up for a moment to turn a caller away when there are no descriptors left
  bool running_ = true;
  uint64_t lastId_ = 0;
  PausedSenders pausedSenders_;
  Clock::time_point reportsChecked_;
  std::vector<Client *> ready_;
  std::vector<Client *> reading_;
  // All input passes through here: what a client sends takes no memory until it has to be kept.
  std::array<std::byte, 65536> buffer_;
};

}  // namespace zor::msgsvr

#endif
