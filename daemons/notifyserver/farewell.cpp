// The last notifications, when the server stops.
#include "programs/farewell.h"

#include <algorithm>

#include "notifyserver/server.h"

namespace zor::notifyserver {

void Server::SayFarewell() {
  daemon::Farewell farewell(signals_);
  for (const auto &[key, client] : clients_) {
    if (client->hasQueued()) farewell.Add(client->socket(), client.get());
  }
  farewell.Say(
      limits_.stop,
      [this] { return std::ranges::any_of(clients_, [](const auto &each) { return each.second->hasQueued(); }); },
      [&farewell](void *each) {
        Client &client = *static_cast<Client *>(each);
        client.Flush();
        if (!client.hasQueued()) farewell.Remove(client.socket());
      });
  for (const auto &[key, client] : clients_) {
    LogEnd(*client);
    const size_t unrouted = client->ended() ? 0 : daemon::UnroutedBytes(client->slot(), client->socket());
    if (unrouted > 0) log_.Print("%s: %zu bytes from it are not routed any more", client->Label().c_str(), unrouted);
  }
}

}  // namespace zor::notifyserver
