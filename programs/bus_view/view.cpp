#include "programs/bus_view/view.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <unordered_map>

#include "programs/bus_view/waits.h"

namespace zor::busview {
namespace {

Rate RateOf(const Count &before, const Count &now, double seconds) {
  if (!before || !now || *now < *before || !(seconds > 0)) return std::nullopt;
  return static_cast<double>(*now - *before) / seconds;
}

Rate CpuOf(const daemon::ProcessState &before, const daemon::ProcessState &now, double seconds) {
  constexpr double kMsPerSecond = 1000;
  if (before.startedTicks != now.startedTicks || now.startedTicks == 0) return std::nullopt;
  const Rate ms = RateOf(before.cpuMs, now.cpuMs, seconds);
  return ms ? Rate(*ms / kMsPerSecond) : std::nullopt;
}

Rates RatesOf(const Traffic &before, const Traffic &now, double seconds) {
  return {RateOf(before.sent, now.sent, seconds),           RateOf(before.received, now.received, seconds),
          RateOf(before.sentBytes, now.sentBytes, seconds), RateOf(before.receivedBytes, now.receivedBytes, seconds),
          RateOf(before.dropped, now.dropped, seconds),     std::nullopt};
}

// Names may be shared, and process numbers are those of this machine only. Equal keys are told apart by their order.
struct Key {
  std::string name;
  std::string board;
  int pid;
  uint64_t since;
  size_t place = 0;  // among those that are equal otherwise

  friend auto operator<=>(const Key &, const Key &) = default;  // NOLINT(modernize-use-nullptr): there is none
};

class Keys {
 public:
  Key Next(const Client &client) {
    Key key{client.daemon.name, client.board, client.daemon.pid, client.since};
    key.place = counts_[key]++;
    return key;
  }

 private:
  std::map<Key, size_t> counts_;
};

std::vector<Rates> DaemonRates(const Sample &before, const Sample &now, double seconds) {
  std::map<Key, const Client *> earlier;
  Keys keysBefore, keysNow;
  for (const Client &client : before.clients) earlier[keysBefore.Next(client)] = &client;
  std::vector<Rates> rates;
  for (const Client &client : now.clients) {
    Rates &rate = rates.emplace_back();
    const auto found = earlier.find(keysNow.Next(client));
    if (found == earlier.end()) continue;
    rate = RatesOf(found->second->traffic, client.traffic, seconds);
    rate.cpu = CpuOf(found->second->process, client.process, seconds);
  }
  return rates;
}

std::vector<Edge> EdgesOf(const Sample &now) {
  std::map<std::tuple<std::string, std::string, uint32_t>, double> sums;
  for (const Client &client : now.clients) {
    for (const Flow &flow : client.flows) {
      sums[{client.daemon.name, flow.to, flow.type}] += static_cast<double>(flow.perSecond);
    }
  }
  std::vector<Edge> edges;
  for (const auto &[key, perSecond] : sums) {
    const auto &[from, to, type] = key;
    if (perSecond > 0) edges.push_back({from, to, type, perSecond});
  }
  std::stable_sort(edges.begin(), edges.end(), [](const Edge &a, const Edge &b) { return a.perSecond > b.perSecond; });
  return edges;
}

std::vector<Pair> PairsOf(const std::vector<Edge> &edges) {
  std::map<std::pair<std::string, std::string>, Pair> sums;
  for (const Edge &edge : edges) {
    const bool swapped = edge.to < edge.from;
    Pair &pair = sums[swapped ? std::pair(edge.to, edge.from) : std::pair(edge.from, edge.to)];
    pair.first = swapped ? edge.to : edge.from;
    pair.second = swapped ? edge.from : edge.to;
    (swapped ? pair.back : pair.there) += edge.perSecond;
  }
  std::vector<Pair> pairs;
  for (auto &[names, pair] : sums) {
    if (pair.back > pair.there) {
      std::swap(pair.first, pair.second);
      std::swap(pair.there, pair.back);
    }
    pairs.push_back(std::move(pair));
  }
  std::stable_sort(pairs.begin(), pairs.end(),
                   [](const Pair &a, const Pair &b) { return a.perSecond() > b.perSecond(); });
  return pairs;
}

}  // namespace

View MakeView(const Sample *before, const Sample &now) {
  View view;
  view.daemons.resize(now.clients.size());
  if (before != nullptr) {
    const double seconds = std::chrono::duration<double>(now.taken - before->taken).count();
    view.server = RatesOf(before->server.traffic, now.server.traffic, seconds);
    view.server.cpu = CpuOf(before->server.process, now.server.process, seconds);
    view.daemons = DaemonRates(*before, now, seconds);
  }
  view.edges = EdgesOf(now);
  view.pairs = PairsOf(view.edges);
  FindWaits(now, view);
  return view;
}

std::string NameOf(const std::string &end, const Server &server) {
  return end.empty() ? server.name : end;
}

bool IsStopped(const Client &client) {
  constexpr std::string_view kStates = "TtZXx";
  return kStates.find(client.process.letter) != kStates.npos;
}

}  // namespace zor::busview
