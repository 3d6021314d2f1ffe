// The tool's connection to the bus. It joins as "ctl<pid>", since replies to a shared name go to the longest-registered
// client of that name, and leaves with the object. There is no loop: a wait reads the socket. Every function throws
// Failure with a text for the user.
#ifndef ZORCTL_BUS_H
#define ZORCTL_BUS_H

#include <zor/msg_wire.h>

#include <cstdint>
#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "programs/stop_signal.h"
#include "zorctl/deadline.h"
#include "zorctl/exit_code.h"

namespace zor::ctl {

// A received message, complete however it travelled.
struct Message {
  uint32_t type = 0;
  uint32_t sequence = 0;
  std::string source;  // at most 11 bytes, as received
  uint32_t data = 0;
  std::string body;

  // Only the server can send without a name.
  bool fromServer() const { return source.empty(); }
};

// A message to send.
struct Outgoing {
  uint32_t type = 0;
  std::string destination;  // empty: the server, which may pass it on by its type
  uint32_t data = 0;
  std::string body;
};

// Receiving libraries do not dispatch longer bodies.
constexpr size_t kMaxBody = ZOR_MSG_DISPATCH_BODY_MAX;

// A message has arrived that cannot be read; those behind it can, unless the connection has broken.
class Unreadable : public Failure {
 public:
  using Failure::Failure;
};

class Bus {
 public:
  // Under the name, or as "ctl<pid>".
  explicit Bus(const Deadline &deadline, const std::string &name = {});
  ~Bus();
  Bus(const Bus &) = delete;
  Bus &operator=(const Bus &) = delete;

  // Returns the message's sequence number.
  uint32_t Send(const Outgoing &message, const Deadline &deadline);

  // The next message; first those received while a request waited. No value at the deadline or when the user stops the
  // verb (see StopWith).
  std::optional<Message> Receive(const Deadline &deadline);

  // Replies to a request, whose sequence number the reply has.
  void Reply(const Message &request, uint32_t data, const std::string &body, const Deadline &deadline);

  // Sends a request and waits for the reply: the next message of its type, from its destination if it names one.
  Message Request(const Outgoing &request, const Deadline &deadline);

  // Sends a request of zor/control_wire.h to the server itself. Returns the body of the reply if it reports success.
  std::string Control(uint32_t type, std::string_view body, const Deadline &deadline);
  nlohmann::json ControlJson(uint32_t type, std::string_view body, const Deadline &deadline);

  // Sends a one-way message. Failure when the server could not deliver it.
  void SendAndCheck(const Outgoing &message, const Deadline &deadline);

  // The number of processes with a name.
  uint32_t CountProcesses(std::string_view name, const Deadline &deadline);

  // There is no daemon of that name, but perhaps one of a similar name.
  Failure NoSuchDaemon(std::string_view name);

  // For verbs that run for long: when the user presses Ctrl-C, Receive returns no value and stopped() is true.
  void StopWith(daemon::StopSignal &signal) { stop_ = &signal; }
  bool stopped() const { return stopped_; }
  // From now on the user cannot stop it: for what must still be sent before the end.
  void IgnoreStop() {
    stop_ = nullptr;
    stopped_ = false;
  }

  // Waits until a message can be read; false at the deadline or when the user stops the verb.
  bool AwaitMessage(const Deadline &deadline);
  // Runs the library's timers, for the reports that the server requested. Returns the time until the next one for poll.
  static int TimeUntilTimer();
  // The messages that were received while a request waited.
  std::deque<Message> TakeSetAside() { return std::exchange(setAside_, {}); }

  const std::string &name() const { return name_; }

 private:
  void SendNumbered(const Outgoing &message, uint32_t sequence, const Deadline &deadline);
  Failure Undelivered(const Outgoing &request);
  std::optional<Message> Read(const Deadline &deadline);

  std::string name_;
  uint32_t sequence_ = 0;
  std::deque<Message> setAside_;
  daemon::StopSignal *stop_ = nullptr;
  bool stopped_ = false;
};

// The server has disconnected.
Failure ServerGone();

// A name as a field of the wire, zero-padded. Failure (usage) when it is empty, too long or not visible ASCII.
std::string NameField(std::string_view name);

}  // namespace zor::ctl

#endif
