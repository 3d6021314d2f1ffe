// The server's own requests (zor/notify_control_wire.h), by which operators look into it.
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

// The registered clients by module id, each module's in the order of their registration. 0 and the server's own id stay
// empty.
using Modules = std::array<std::vector<Client *>, ZOR_NOTIFY_MID_LAST + 1>;

class Control {
 public:
  // The modules are looked at when somebody asks.
  Control(const Limits &limits, const Modules &modules) : limits_(limits), modules_(modules) {}

  static bool IsRequest(const Frame &frame);
  void Answer(Client &from, const Frame &request) const;

 private:
  std::string List() const;

  const Limits limits_;
  const Modules &modules_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace zor::notifyserver

#endif
