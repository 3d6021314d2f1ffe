#include "zorctl/graph.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>

#include "zorctl/format.h"
#include "zorctl/quantity.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

using Kind = GraphNode::Kind;

// What is known of a name, whose node gets its place at the end.
struct Named {
  size_t processes = 0;
  busview::Rate rate;
  Kind kind = Kind::kAbsent;
};

// The server's own name, which no daemon has, is the empty one.
std::map<std::string, Named> NamesOf(const TopData &data) {
  std::map<std::string, Named> names;
  for (const TopRow &row : RowsOf(data, SortKey::kName, "")) {
    Named &named = names[row.name()];
    ++named.processes;
    if (const auto rate = row.Messages()) named.rate = named.rate.value_or(0) + *rate;
    Kind kind = Kind::kDaemon;
    if (row.wait != nullptr) kind = row.wait->inCycle ? Kind::kCycle : Kind::kWaiting;
    if (busview::IsStopped(*row.client)) kind = Kind::kStopped;
    named.kind = named.kind == Kind::kAbsent ? kind : std::max(named.kind, kind);
  }
  for (const busview::Edge &edge : data.view.edges) names[edge.to];
  for (const busview::Wait &wait : data.view.waits) {
    if (wait.lasts()) names[wait.name];
  }
  return names;
}

std::string NoteOf(const Named &named) {
  std::string note = named.rate.value_or(0) > 0 ? RateText(named.rate) + "/s" : "";
  const auto add = [&](const std::string &text) { note += (note.empty() ? "" : ", ") + text; };
  if (named.processes > 1) add(std::to_string(named.processes) + " processes");
  if (named.kind == Kind::kStopped) add("stopped");
  if (named.kind == Kind::kAbsent) add("absent");
  return note;
}

// From each name to the one it talks to most of those that are left, and from there on; then the next.
std::vector<std::string> OrderOf(const std::map<std::string, Named> &names, const TopData &data) {
  std::multimap<std::string, std::string> peers;  // the busiest first
  const auto link = [&](const std::string &a, const std::string &b) {
    peers.emplace(a, b);
    peers.emplace(b, a);
  };
  for (const busview::Pair &pair : data.view.pairs) link(pair.first, pair.second);
  for (const busview::Wait &wait : data.view.waits) link(data.sample.clients[wait.from].daemon.name, wait.name);
  std::map<std::string, bool> placed;
  for (const auto &[name, named] : names) placed[name] = false;
  std::vector<std::string> order;
  const auto follow = [&](std::string name) {
    for (;;) {
      placed[name] = true;
      order.push_back(name);
      const auto [first, last] = peers.equal_range(name);
      const auto next = std::find_if(first, last, [&](const auto &each) {
        const auto known = placed.find(each.second);
        return known != placed.end() && !known->second;
      });
      if (next == last) return;
      name = next->second;
    }
  };
  for (const busview::Pair &pair : data.view.pairs) {
    if (!placed[pair.first]) follow(pair.first);
  }
  for (const auto &[name, named] : names) {
    if (!placed[name]) follow(name);
  }
  return order;
}

// One message a second is 1, and each tenfold more.
double WidthOf(double perSecond) {
  return 1 + std::log10(std::max(perSecond, 1.0));
}

}  // namespace

Graph GraphOf(const TopData &data) {
  const std::map<std::string, Named> names = NamesOf(data);
  std::map<std::string, size_t> places;
  Graph graph;
  for (const std::string &name : OrderOf(names, data)) {
    Named named = names.at(name);
    if (name.empty()) named.kind = Kind::kServer;
    places[name] = graph.nodes.size();
    graph.nodes.push_back({Escape(NameOf(name, data.sample.server)), NoteOf(named), named.kind});
  }
  std::map<std::pair<size_t, size_t>, double> sums;
  for (const busview::Edge &edge : data.view.edges) {
    sums[{places.at(edge.from), places.at(edge.to)}] += edge.perSecond;
  }
  for (const auto &[ends, perSecond] : sums) {
    graph.arrows.push_back(
        {ends.first, ends.second, RateText(perSecond) + "/s", GraphArrow::Kind::kTraffic, WidthOf(perSecond)});
  }
  for (const busview::Wait &wait : data.view.waits) {
    if (!wait.lasts()) continue;
    const std::string &from = data.sample.clients[wait.from].daemon.name;
    graph.arrows.push_back({places.at(from), places.at(wait.name), "waits " + LongAgeText(Milliseconds(wait.ageMs)),
                            wait.inCycle ? GraphArrow::Kind::kCycle : GraphArrow::Kind::kWait, 2});
  }
  return graph;
}

const char *ColourOf(GraphNode::Kind kind) {
  switch (kind) {
    case Kind::kDaemon:
      return "#2f6fb0";
    case Kind::kWaiting:
      return "#b37400";
    case Kind::kCycle:
      return "#8e24aa";
    case Kind::kStopped:
      return "#c62828";
    case Kind::kAbsent:
      return "#9e9e9e";
    case Kind::kServer:
      break;
  }
  return "#37474f";
}

const char *ColourOf(GraphArrow::Kind kind) {
  switch (kind) {
    case GraphArrow::Kind::kTraffic:
      return "#7fa8d1";
    case GraphArrow::Kind::kWait:
      return ColourOf(Kind::kWaiting);
    case GraphArrow::Kind::kCycle:
      break;
  }
  return ColourOf(Kind::kCycle);
}

}  // namespace zor::ctl
