#include "msgsvr/bus.h"

#include <algorithm>

namespace zor::msgsvr {

void Bus::End(Client &client) {
  if (client.ended) return;
  client.ended = true;
  someEnded_ = true;
  counters.dropped += MessagesFor(client);
  for (const auto &message : client.output.messages()) files.Remove(message.bytes);
  patterns.Remove(client);
  barriers.Forget(client);
  monitors.Remove(client);
  if (!client.registered()) return;
  if (verbose) log.Print("%s disconnected", client.Label().c_str());
  names.Remove(client.name, client);
  if (client.leaving && names.ClientsNamed(client.name).empty()) subscriptions.Forget(client.name);
}

size_t Bus::MessagesFor(const Client &client) {
  const auto &queued = client.output.messages();
  return static_cast<size_t>(std::count_if(queued.begin(), queued.end(), [](const auto &message) {
    return message.bytes.size() >= ZOR_MSG_HEAD_SIZE && !IsCopy(message.bytes);
  }));
}

void Bus::CutOff(Client &client, const std::string &reason) {
  if (client.ended) return;
  log.Print("%s cut off: %s", client.Label().c_str(), reason.c_str());
  End(client);
}

void Bus::Sweep() {
  if (!someEnded_) return;
  someEnded_ = false;
  std::erase_if(clients, [](const Client &client) { return client.ended; });
}

Client *Bus::Find(uint64_t id) {
  const auto found = std::find_if(clients.begin(), clients.end(),
                                  [&](const Client &client) { return client.id == id && !client.ended; });
  return found == clients.end() ? nullptr : &*found;
}

}  // namespace zor::msgsvr
