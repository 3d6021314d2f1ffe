#include "zorweb/losses.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "programs/limits.h"
#include "programs/messages/text.h"

namespace zor::web {
namespace {

using Json = nlohmann::ordered_json;

std::uint64_t Growth(const busview::Count &before, const busview::Count &now) {
  return before && now && *now > *before ? *now - *before : 0;
}

// The same connection.
const busview::Client *Find(const busview::Sample &sample, const busview::Client &client) {
  const auto found = std::ranges::find_if(sample.clients, [&client](const busview::Client &each) {
    return each.daemon.name == client.daemon.name && each.daemon.pid == client.daemon.pid && each.since == client.since;
  });
  return found == sample.clients.end() ? nullptr : &*found;
}

}  // namespace

void Losses::Put(Loss loss) {
  losses_.push_front(std::move(loss));
  if (losses_.size() > limits::zorweb::kLosses) losses_.pop_back();
}

bool Losses::Add(std::int64_t nowMs, const busview::Sample &before, const busview::Sample &now) {
  bool found = false;
  const auto put = [&](const std::string &name, const char *what, std::uint64_t count) {
    if (count == 0) return;
    Put({nowMs, name, what, count});
    found = true;
  };
  if (now.server.uptimeMs < before.server.uptimeMs) {
    put("", "restart", 1);
    return found;
  }
  for (const busview::Client &client : now.clients) {
    const busview::Client *former = Find(before, client);
    if (former == nullptr) continue;
    put(client.daemon.name, "dropped", Growth(former->traffic.dropped, client.traffic.dropped));
    put(client.daemon.name, "refused", Growth(former->daemon.refused, client.daemon.refused));
  }
  put("", "dropped", Growth(before.server.traffic.dropped, now.server.traffic.dropped));
  return found;
}

Json Losses::AsJson() const {
  Json all = Json::array();
  for (const Loss &each : losses_) {
    all.push_back(
        {{"time", each.timeMs}, {"name", messages::Escape(each.name)}, {"what", each.what}, {"count", each.count}});
  }
  return all;
}

}  // namespace zor::web
