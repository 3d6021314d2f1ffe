// Decides where frames go, in this order: an unregistered client may only register; an event goes to its subscribers;
// a message with a destination goes to the client of that name; the server handles its own requests, control requests
// included; a restful request goes by its path; everything else goes by the route table.
#ifndef MSGSVR_ROUTER_H
#define MSGSVR_ROUTER_H

#include <span>
#include <vector>

#include "msgsvr/control.h"
#include "msgsvr/delivery.h"
#include "msgsvr/file_passing.h"
#include "msgsvr/permission.h"
#include "msgsvr/requests.h"

namespace zor::msgsvr {

class Router {
 public:
  explicit Router(Bus &bus)
      : bus_(bus),
        delivery_(bus),
        files_(bus, delivery_),
        permission_(bus),
        requests_(bus, delivery_, files_),
        control_(bus, delivery_, files_) {}

  // Routes the complete frames in the bytes, as many as a client may have routed in one turn, and returns their total
  // size. The sender may have ended meanwhile. A frame for which there is no memory is refused.
  size_t Route(Client &from, std::span<std::byte> bytes);

  Delivery &delivery() { return delivery_; }

 private:
  void GiveUp(Client &from, const Frame &frame);
  void RouteFrame(Client &from, Frame &frame);
  bool Serve(Client &from, const Frame &frame);
  void RouteUnnamed(Client &from, const Frame &frame);
  void ForwardTo(Client &from, Client *to, const Frame &frame);
  void TakeEvent(Client &from, const Frame &frame);
  void PublishEvent(Client &from, const Frame &frame);
  void CollectSubscribers(const Frame &frame);
  Client *RestfulTarget(const Frame &frame);

  Bus &bus_;
  Delivery delivery_;
  FilePassing files_;
  Permission permission_;
  Requests requests_;
  Control control_;
  std::vector<Client *> subscribers_;  // of the event at hand
};

}  // namespace zor::msgsvr

#endif
