// Who gets a message.
//
// - A client is addressed by the module id (MID) that it registered; of several clients of one module the oldest.
// - The source of every message is the sender's registered id, whatever the sender wrote.
// - A request is recorded with its requester until it is answered. When nobody can answer it (no such module, the
//   requester itself, a client that ends meanwhile) the server answers it without data, because the requester waits.
// - An answer goes to the client that asked, not to the oldest of its module. One that nobody waits for is dropped: the
//   library would take any message of the right type and number for the answer.
// - Control requests are the server's own. A client may ask before it registers, so that an operator's tool takes no
//   module's id.
#ifndef NOTIFYSERVER_ROUTER_H
#define NOTIFYSERVER_ROUTER_H

#include <zor/notify_wire.h>

#include <vector>

#include "common/problem_log.h"
#include "notifyserver/client.h"
#include "notifyserver/control.h"
#include "notifyserver/frame.h"

namespace zor::notifyserver {

class Router {
 public:
  // verbose: also log who comes and goes and what finds no destination.
  Router(const Limits &limits, daemon::ProblemLog &log, bool verbose)
      : control_(limits, modules_), log_(log), verbose_(verbose) {}

  // Passes on a frame; one that breaks the rules ends its sender.
  void Route(Client &from, Frame &frame);
  // Forgets a client that has ended and answers the requests that it leaves open.
  void Remove(const Client &client);

 private:
  void Register(Client &client, const Frame &frame);
  void RouteNotification(Client &from, const Frame &frame);
  void RouteRequest(Client &from, const Frame &frame);
  void RouteAnswer(Client &from, const Frame &frame);
  // The clients of a module in the order of their registration; empty for an id that nobody can register.
  std::vector<Client *> &ClientsOf(uint32_t mid);
  Client *Oldest(uint32_t mid);

  Modules modules_;
  Control control_;
  daemon::ProblemLog &log_;
  bool verbose_;
};

}  // namespace zor::notifyserver

#endif
