#include "msgsvr/farewell.h"

#include <algorithm>

#include "programs/farewell.h"

namespace zor::msgsvr {
namespace {

// Copies for monitors are not worth waiting for.
bool SomethingQueued(const Bus &bus) {
  return std::any_of(bus.clients.begin(), bus.clients.end(), [](const Client &client) {
    return !client.ended && !client.deaf && Bus::MessagesFor(client) > 0;
  });
}

}  // namespace

void SayFarewell(Bus &bus, Delivery &delivery, daemon::ServerSignals &signals) {
  daemon::Farewell farewell(signals);
  for (Client &client : bus.clients) {
    if (!client.output.empty()) farewell.Add(client.socket.get(), &client);
  }
  farewell.Say(
      bus.settings.stopTime, [&bus] { return SomethingQueued(bus); },
      [&](void *each) {
        Client &client = *static_cast<Client *>(each);
        delivery.FlushQueue(client);
        if (client.deaf || client.output.empty()) farewell.Remove(client.socket.get());
      });
  for (const Client &client : bus.clients) {
    const size_t unrouted = client.ended ? 0 : daemon::UnroutedBytes(client.slot, client.socket.get());
    if (unrouted > 0) bus.log.Print("%s: %zu bytes from it are not routed any more", client.Label().c_str(), unrouted);
  }
}

}  // namespace zor::msgsvr
