// Control requests (zor/notify_control_wire.h): operators' tools inspect the server.
#ifndef NOTIFYSERVER_CONTROL_H
#define NOTIFYSERVER_CONTROL_H

#include <zor/notify_wire.h>

#include <array>
#include <chrono>
#include <string>
#include <vector>

#include "notifyserver/client.h"
#include "notifyserver/frame.h"
#include "notifyserver/limits.h"

namespace zor::notifyserver {

// The registered clients by module id, in the order of their registration. Id 0 and the server's own id stay empty.
using Modules = std::array<std::vector<Client *>, ZOR_NOTIFY_MID_LAST + 1>;

class Control {
 public:
  // The modules are read when a request arrives.
  Control(const Limits &limits, const Modules &modules) : limits_(limits), modules_(modules) {}

  static bool IsRequest(const Frame &frame);
  // Carries out a control request and sends the reply.
  void Reply(Client &from, const Frame &request) const;

 private:
  std::string ServerText() const;
  // The server and its clients as JSON; empty if memory runs out or the text does not fit a reply.
  std::string List() const;

  const Limits limits_;
  const Modules &modules_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace zor::notifyserver

#endif
