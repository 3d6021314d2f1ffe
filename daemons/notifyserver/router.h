// Who gets a message.
//
// - A client is addressed by the module id (MID) that it registered; of several clients of one module the oldest.
// - The source of every message is the sender's registered id, whatever the sender wrote.
// - A request is recorded with its requester until it is answered. When nobody can answer it (no such module, the
//   requester itself, a client that ends meanwhile) the server answers it without data, because the requester waits.
// - An answer goes to the client that asked, not to the oldest of its module. One that nobody waits for is dropped: the
//   library would take any message of the right type and number for the answer.
#ifndef NOTIFYSERVER_ROUTER_H
#define NOTIFYSERVER_ROUTER_H

#include <zor/notify_wire.h>

#include <array>
#include <vector>

#include "common/problem_log.h"
#include "notifyserver/client.h"
#include "notifyserver/frame.h"

namespace zor::notifyserver {

class Router {
 public:
  // verbose: also log who comes and goes and what finds no destination.
  Router(daemon::ProblemLog &log, bool verbose) : log_(log), verbose_(verbose) {}

  // Passes on a frame; one that breaks the rules ends its sender.
  void Route(Client &from, Frame &frame);
  // Forgets a client that has ended and answers the requests that it leaves open.
  void Remove(const Client &client);

 private:
  void Register(Client &client, const Frame &frame);
  void RouteNotification(const Frame &frame);
  void RouteRequest(Client &from, const Frame &frame);
  void RouteAnswer(const Client &from, const Frame &frame);
  // The clients of a module in the order of their registration; empty for an id that nobody can register.
  std::vector<Client *> &ClientsOf(uint32_t mid);
  Client *Oldest(uint32_t mid);

  daemon::ProblemLog &log_;
  bool verbose_;
  std::array<std::vector<Client *>, ZOR_NOTIFY_MID_LAST + 1> modules_;  // by id; 0 and the server's stay empty
};

}  // namespace zor::notifyserver

#endif
