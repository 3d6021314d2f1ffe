// Control requests (zor/notify_control_wire.h): operators' tools inspect the server.
#ifndef NOTIFYSERVER_CONTROL_H
#define NOTIFYSERVER_CONTROL_H

#include <zor/notify_wire.h>

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "notifyserver/client.h"
#include "notifyserver/frame.h"
#include "notifyserver/limits.h"
#include "notifyserver/server_state.h"
#include "programs/problem_log.h"

namespace zor::notifyserver {

// The registered clients by module id, in the order of their registration. Id 0 and the server's own id stay empty.
using Modules = std::array<std::vector<Client *>, ZOR_NOTIFY_MID_LAST + 1>;

class Control {
 public:
  // The modules are read when a request arrives.
  Control(const Limits &limits, const Modules &modules, access::Guard &guard, daemon::ProblemLog &log)
      : limits_(limits), modules_(modules), guard_(guard), log_(log) {}

  static bool IsRequest(const Frame &frame);
  // Carries out a control request and sends the reply; that to a restart is owed.
  void Reply(Client &from, const Frame &request);

  // The client that waits for the server's replacement.
  const std::optional<OwedReplyRecord> &owed() const { return owed_; }
  // Repeats what another process owed.
  void Owe(const OwedReplyRecord &reply) { owed_ = reply; }
  // Sends what is owed to the client.
  void PayOwed(Client &to, uint32_t result, std::string_view text);
  void ForgetOwed() { owed_.reset(); }

  std::chrono::steady_clock::time_point start() const { return start_; }
  void SetStart(std::chrono::steady_clock::time_point start) { start_ = start; }

 private:
  // Asks the rules.
  bool IsGranted(const Client &client, uint32_t type);
  static void Send(Client &to, const OwedReplyRecord &asked, uint32_t result, std::string_view text);
  std::string ServerText() const;
  // The server and its clients as JSON; empty if memory runs out or the text does not fit a reply.
  std::string List() const;

  const Limits limits_;
  const Modules &modules_;
  access::Guard &guard_;
  daemon::ProblemLog &log_;
  std::optional<OwedReplyRecord> owed_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace zor::notifyserver

#endif
