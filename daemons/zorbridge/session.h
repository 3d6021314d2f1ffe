// One session with a broker over one connection: the fence around libmosquitto, which only this and properties.h know.
//
// Its callbacks only note what has happened, and whoever has called it takes the notes afterwards. So no code of ours
// runs while the library holds its locks, and a session can be destroyed as soon as a call has returned.
//
// Where the library does not do what a loop of ours needs:
// - What goes into CONNECT, such as the largest packet, can be given only to its blocking connect. That one is made to
//   fail before it connects: it has stored the properties by then, and the other one uses them.
// - It looks names up with a call that blocks: it gets addresses.
// - It wants to write as long as a TLS handshake lasts, which would spin: OpenSSL is asked instead. A handshake goes on
//   only with its function for reading.
// - A connection that is refused is noticed late, one that ends in a handshake not at all: the socket is asked.
// - It closes its socket from within: the loop watches a duplicate.
// - It takes packets of any size, whatever it has told the broker: bytes of which no packet comes are counted.
// - It takes errors that it finds in OpenSSL's queue for its own: the queue is emptied before.
// - It has a pair of sockets to wake a thread of its own that there is not. With each packet it writes a byte to it,
//   which nobody reads: a system call too many, until their buffer of some 200 KiB is full.
#ifndef ZORBRIDGE_SESSION_H
#define ZORBRIDGE_SESSION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zorbridge/publication.h"
#include "zorbridge/tls_context.h"

struct mosquitto;

namespace zor::bridge {

struct SessionEvent {
  enum class Kind { kAccepted, kSubscribed, kDelivery, kPublished };

  Kind kind;
  int id = 0;    // of the packet
  int code = 0;  // MQTT's; from 128 on it is a refusal. kAccepted: the keep-alive that the broker wants, or 0
  Delivery delivery = {};
};

class Session {
 public:
  struct Options {
    std::string clientId;
    std::string userName, password;
    std::string willTopic, willPayload;
    uint16_t keepAliveSeconds = 0;
    uint32_t inFlight = 0;
    uint32_t largestPacket = 0;
    std::shared_ptr<const TlsContext> tls;  // null: none
  };
  enum class Sent { kSent, kRefused, kBroken };

  // Begins to connect to an address. Null, with the problem, if that fails at once.
  static std::unique_ptr<Session> Connect(const Options &options, const std::string &address, uint16_t port,
                                          std::string *problem);
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;
  ~Session();

  int socket() const;
  bool wantsToWrite() const;

  // When the socket is ready, and when the keep-alive is due.
  void Read();
  void Write();
  void KeepAlive();

  // kRefused, with the problem: for its content. The id is that of the packet.
  Sent Publish(const Publication &publication, int *id, std::string *problem);
  // To one topic or more. The answer is one event.
  void Subscribe(const std::vector<std::string> &topics, bool retainedToo);
  // Says good-bye, so that there is no will; the session ends when that has been written.
  void Disconnect();

  // What has happened since the last call.
  std::vector<SessionEvent> TakeEvents() { return std::exchange(events_, {}); }
  bool ended() const { return ended_; }
  // Why, when it has ended.
  std::string why() const;
  // The broker does not want us: it has refused the session, or another client has taken our name.
  bool refused() const { return refused_; }
  // The broker has closed the connection without a word.
  bool closed() const { return closed_; }

 private:
  struct Callbacks;
  friend struct Callbacks;
  struct Destroyer {
    void operator()(mosquitto *client) const noexcept;
  };

  explicit Session(const Options &options);
  bool SetUp(const Options &options);
  bool Begin(const std::string &address, uint16_t port);
  bool Reach();
  bool inHandshake() const;
  bool CheckAlive();
  void Check(int status);
  void CheckSize();
  void End(const std::string &why);
  void Note(SessionEvent event);

  std::shared_ptr<const TlsContext> tls_;
  std::string clientId_;
  int64_t largestPacket_;
  std::optional<int64_t> packetBegin_;  // bytes received before the packet of which a part has come
  std::vector<SessionEvent> events_;
  std::string tlsProblem_;
  std::string why_;
  bool reached_ = false;   // there is a connection
  bool accepted_ = false;  // and a session
  bool refused_ = false;
  bool closed_ = false;
  bool ended_ = false;
  std::unique_ptr<mosquitto, Destroyer> client_;  // the first to go: it uses the others
};

// A readable text for a reason code of MQTT.
std::string ReasonText(int code);

}  // namespace zor::bridge

#endif
