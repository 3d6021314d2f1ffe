// Decides which client gets a message.
//
// - A client is addressed by the module id (MID) that it registered; if a module has several clients, the longest
//   registered one gets the message.
// - The source of every message is set to the sender's registered id.
// - A request is recorded with its requester until the reply arrives. If no reply can come (no such module, a request
// to
//   oneself, a client that disconnects meanwhile), the server sends an empty reply, because the requester waits.
// - A reply goes to the client that sent the request, not to the first of its module. An unexpected reply is dropped:
//   the library would accept any message of the right type and number as the reply.
// - Who may register an id, the rules of access decide. As for an invalid id, a refused client is cut off: there is no
//   reply to a registration.
// - The server handles control requests itself. A client may send them before it registers, so that an operator's tool
//   does not occupy a module's id.
#ifndef NOTIFYSERVER_ROUTER_H
#define NOTIFYSERVER_ROUTER_H

#include <zor/notify_wire.h>

#include <vector>

#include "notifyserver/client.h"
#include "notifyserver/control.h"
#include "notifyserver/frame.h"
#include "programs/problem_log.h"

namespace zor::notifyserver {

class Router {
 public:
  // verbose: also log clients that register and leave, and messages without a destination.
  Router(const Limits &limits, access::Guard &guard, daemon::ProblemLog &log, bool verbose)
      : control_(limits, modules_, guard, log), guard_(guard), log_(log), verbose_(verbose) {}

  // Passes on a frame. A frame that breaks the rules ends its sender.
  void Route(Client &from, Frame &frame);
  // Gives up a frame that is not to be passed on: the requester gets an empty reply.
  void Refuse(Client &from, const Frame &frame);
  // Removes a client that has ended, and sends empty replies to the requests that were waiting for it.
  void Remove(const Client &client);

  Control &control() { return control_; }
  // Takes over a registered client from another process: call it in the order of the registrations.
  void Adopt(Client &client);
  // Sends empty replies to the requests that were waiting for clients that are no longer there.
  void EndOrphans();
  uint64_t lastRegistration() const { return lastRegistration_; }

 private:
  void Register(Client &client, const Frame &frame);
  // Asks the rules.
  bool MayTake(const Client &client, uint32_t mid);
  void RouteNotification(Client &from, const Frame &frame);
  void RouteRequest(Client &from, const Frame &frame);
  void RouteReply(Client &from, const Frame &frame);
  // False, with a line, if there was no memory for the message and its receiver still waits for others.
  bool Deliver(Client &to, const Frame &frame);
  template <class Visit>
  void ForEach(Visit visit);
  // The clients of a module in the order of their registration; empty for an id that cannot be registered.
  std::vector<Client *> &ClientsOf(uint32_t mid);
  Client *Oldest(uint32_t mid);

  Modules modules_;
  uint64_t lastRegistration_ = 0;
  Control control_;
  access::Guard &guard_;
  daemon::ProblemLog &log_;
  bool verbose_;
};

}  // namespace zor::notifyserver

#endif
