// The far end of a bus connection under a test's control: it sends and receives exactly the bytes that the test wants,
// also those that no well-behaved server would send.
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

// The answer to a registration: the granted name, the data word (nonzero: swap headers) and the body.
Message MakeRegistrationReply(const std::string &grantedName, uint32_t data = 0,
                              std::string body = std::string(8, '\0'));

// One end of a stream. Every receive ends after its deadline, so a test that waits in vain fails instead of hanging.
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
  // Header and body in the byte order of this machine; none when either does not come whole.
  std::optional<Message> ReceiveMessage(std::chrono::milliseconds deadline = kPatience) const;
  // Whether nothing has arrived that is still unread.
  bool NothingArrived() const;
  // Whether the other end closes before the deadline without sending anything more.
  bool ClosedByOther(std::chrono::milliseconds deadline = kPatience) const;
  void Close();
  // Gives the descriptor away, to code under test that closes it.
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

// Makes this process "connected" to a peer in its hands, without a server, a registration or a watcher on the loop:
// puts a socket into the bus context under the given name and takes it out again at the end. What the peer sends before
// a synchronous request lies in the socket as the answer, so most tests need no second thread.
class LoopbackBus {
 public:
  explicit LoopbackBus(const char *ownName = "tester");
  ~LoopbackBus();
  LoopbackBus(const LoopbackBus &) = delete;
  LoopbackBus &operator=(const LoopbackBus &) = delete;

  BusPeer peer;
};

// A bound UDP socket on the loopback address, at a port of the kernel's choice.
class UdpReceiver {
 public:
  UdpReceiver();
  uint16_t port() const { return port_; }
  // The next datagram; empty when none comes before the deadline.
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
  // On the loopback address, at a port of the kernel's choice.
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

// The script of an ordinary server: receives the registration and sends the answer.
ScriptedServer::Script AnswerRegistration(const Message &reply);

}  // namespace zor::test

#endif
