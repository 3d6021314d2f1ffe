#include "zorctl/top_report.h"

#include <ctime>
#include <nlohmann/json.hpp>

#include "zorctl/format.h"
#include "zorctl/text.h"
#include "zorctl/top_summary.h"
#include "zorctl/top_table.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;

template <class Number>
Json JsonOf(const std::optional<Number> &number) {
  return number ? Json(*number) : Json();
}

void AddRates(Json &object, const busview::Rates &rates) {
  object["sent_per_second"] = JsonOf(rates.sent);
  object["received_per_second"] = JsonOf(rates.received);
  object["sent_bytes_per_second"] = JsonOf(rates.sentBytes);
  object["received_bytes_per_second"] = JsonOf(rates.receivedBytes);
  object["dropped_per_second"] = JsonOf(rates.dropped);
  object["cpu"] = JsonOf(rates.cpu);
}

Json DaemonJson(const TopRow &row) {
  const busview::Client &client = *row.client;
  Json object = {{"name", client.daemon.name},
                 {"pid", client.daemon.pid},
                 {"process", daemon::StateText(client.process.letter)},
                 {"stopped", busview::IsStopped(client)},
                 {"memory_bytes", client.process.residentBytes},
                 {"dropped", JsonOf(client.traffic.dropped)},
                 {"waiting",
                  {{"messages", client.daemon.unread},
                   {"bytes", client.unreadBytes},
                   {"at_least", client.daemon.unreadAtLeast},
                   {"oldest_ms", client.daemon.unreadMs}}}};
  if (!client.board.empty()) object["board"] = client.board;
  AddRates(object, *row.rates);
  return object;
}

Json EdgesJson(const busview::View &view) {
  Json edges = Json::array();
  for (const busview::Edge &edge : view.edges) {
    edges.push_back({{"from", edge.from}, {"to", edge.to}, {"type", edge.type}, {"per_second", edge.perSecond}});
  }
  return edges;
}

Json WaitsJson(const TopData &data) {
  Json waits = Json::array();
  for (const busview::Wait &wait : data.view.waits) {
    if (!wait.lasts()) continue;
    waits.push_back({{"from", data.sample.clients[wait.from].daemon.name},
                     {"to", wait.name},
                     {"type", wait.type},
                     {"age_ms", wait.ageMs},
                     {"perhaps", wait.perhaps},
                     {"cycle", wait.inCycle}});
  }
  return waits;
}

}  // namespace

std::string BatchText(const TopData &data, SortKey sort, const std::string &filter, size_t columns) {
  constexpr size_t kMostColumns = 160;
  const size_t width = std::min(columns, kMostColumns);
  std::string text = LocalTimeText(std::time(nullptr)) + "\n";
  for (const Line &line : SummaryOf(data, width)) text += Cut(TextOfLine(line), columns) + "\n";
  const TopTable table(width);
  std::vector<std::string> lines = {table.Title()};
  for (const TopRow &row : RowsOf(data, sort, filter)) lines.push_back(table.RowText(row));
  for (std::string &line : lines) {
    line.erase(line.find_last_not_of(' ') + 1);
    text += Cut(line, columns) + "\n";
  }
  return text + Cut(data.cost.Text(), columns) + "\n\n";
}

Json BatchJson(const TopData &data, SortKey sort, const std::string &filter) {
  const busview::Server &server = data.sample.server;
  Json object = {
      {"time", std::time(nullptr)},
      {"server",
       {{"pid", server.pid},
        {"uptime_ms", server.uptimeMs},
        {"held", server.heldBytes},
        {"memory_bytes", server.memoryBytes}}},
      {"daemons", Json::array()},
      {"flows", EdgesJson(data.view)},
      {"waits", WaitsJson(data)},
      {"cycles", data.view.cycles},
      {"sampling",
       {{"bytes", data.cost.bytes}, {"microseconds", data.cost.time.count()}, {"server_share", data.cost.Share()}}}};
  AddRates(object["server"], data.view.server);
  for (const TopRow &row : RowsOf(data, sort, filter)) object["daemons"].push_back(DaemonJson(row));
  return object;
}

}  // namespace zor::ctl
