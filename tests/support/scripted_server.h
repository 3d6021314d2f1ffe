// The far end of a bus connection under a test's control: it sends and receives exactly the bytes that the test wants,
// even those that no well-behaved server would send.
#ifndef TESTS_SUPPORT_SCRIPTED_SERVER_H
#define TESTS_SUPPORT_SCRIPTED_SERVER_H

#include <zor/msg_wire.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "support/child.h"
#include "support/temp_root.h"

namespace zor::test {

// A message on the wire. Set header.bodyLength afterwards for one that lies about its length.
struct Message {
  ZOR_MSG_HEAD header = {};
  std::string body;

  std::string Bytes() const;
};

// A message block of the library.
using Block = std::unique_ptr<ZOR_MSG_HEAD, decltype([](ZOR_MSG_HEAD *msg) { std::free(msg); })>;

Message MakeMessage(uint32_t type, const std::string &source, const std::string &destination, uint32_t data = 0,
                    std::string body = {}, uint32_t sequence = 0);

// The reply to a registration: the granted name, the data word (nonzero: swap headers) and the body.
Message MakeRegistrationReply(const std::string &grantedName, uint32_t data = 0,
                              std::string body = std::string(8, '\0'));

// One end of a stream. Every receive has a deadline, so that a test fails instead of hanging.
class BusPeer {
 public:
  explicit BusPeer(int fd = -1) : fd_(fd) {}
  BusPeer(BusPeer &&other) noexcept;
  BusPeer &operator=(BusPeer &&other) noexcept;
  ~BusPeer() { Close(); }

  int fd() const { return fd_; }
  void Send(std::string_view bytes) const;
  void Send(const Message &message) const { Send(message.Bytes()); }
  // Exactly count bytes; fewer at the end of file or after the deadline.
  std::string Receive(std::size_t count, std::chrono::milliseconds deadline = kPatience) const;
  // Header and body in the byte order of this machine; empty when either does not arrive whole.
  std::optional<Message> ReceiveMessage(std::chrono::milliseconds deadline = kPatience) const;
  // Whether there is no unread data.
  bool NothingArrived() const;
  // Whether the other end closes before the deadline without sending anything more.
  bool ClosedByOther(std::chrono::milliseconds deadline = kPatience) const;
  void Close();
  // Hands the descriptor over to code under test that closes it.
  int Release();

 private:
  int fd_;
};

// Two connected stream sockets.
struct SocketPair {
  SocketPair();
  BusPeer near;
  BusPeer far;
};

// Makes this process "connected" to a peer that it controls, without a server, a registration or a watcher on the loop:
// puts a socket into the bus context under the given name and removes it at the end. Data that the peer sends before a
// synchronous request is in the socket as its reply, so most tests need no second thread.
class LoopbackBus {
 public:
  explicit LoopbackBus(const char *ownName = "tester");
  ~LoopbackBus();
  LoopbackBus(const LoopbackBus &) = delete;
  LoopbackBus &operator=(const LoopbackBus &) = delete;

  BusPeer peer;
};

// A bound UDP socket on the loopback address, at a port that the kernel picks.
class UdpReceiver {
 public:
  UdpReceiver();
  uint16_t port() const { return port_; }
  // The next datagram; empty when none arrives before the deadline.
  std::string Next() const;

 private:
  BusPeer socket_;
  uint16_t port_;
};

// Listens where daemons look for the message server, accepts one connection and runs a script on it in a thread.
class ScriptedServer {
 public:
  using Script = std::function<void(const BusPeer &)>;

  // At the bus path beneath the root.
  ScriptedServer(const TempRoot &root, Script script);
  // On the loopback address, at a port that the kernel picks.
  explicit ScriptedServer(Script script);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer &) = delete;
  ScriptedServer &operator=(const ScriptedServer &) = delete;

  uint16_t port() const { return port_; }
  // Waits for the end of the script and hands the connection over.
  BusPeer TakeOver();

 private:
  void Run(Script script);

  int listener_;
  uint16_t port_ = 0;
  std::promise<BusPeer> done_;
  std::thread thread_;
};

// The script of an ordinary server: receives the registration and sends the reply.
ScriptedServer::Script ReplyToRegistration(const Message &reply);

}  // namespace zor::test

#endif
