#include <zor/control_wire.h>
#include <zor/event.h>

#include <ctime>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "programs/messages/event.h"
#include "zorctl/bus.h"
#include "zorctl/fleet_report.h"
#include "zorctl/format.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/table.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;
using Align = Table::Align;

std::string UserText(const Json &client) {
  if (!client.value("local", true)) return "-";
  return UserName(client.value("uid", uid_t{0}));
}

std::string PidText(const Json &client) {
  return client.value("local", true) ? std::to_string(client.value("pid", 0)) : "-";
}

std::string CountText(const Json &object, const char *key) {
  return std::to_string(object.value(key, uint64_t{0}));
}

std::string WaitingText(const Json &client) {
  const Json waiting = client.value("waiting", Json::object());
  return (waiting.value("at_least", false) ? ">" : "") + CountText(waiting, "bytes");
}

// Every client holds a few kilobytes.
std::string HeldText(const Json &client) {
  constexpr uint64_t kUsual = 8192;
  const auto held = client.value("held", uint64_t{0});
  return held < kUsual ? "-" : std::to_string(held / 1024) + " KiB";
}

std::string EventText(uint32_t type) {
  if (type == ZOR_EVT_ALL) return "all";
  std::string module = messages::EventModuleOf(type);
  return module.empty() ? HexText(type) : module;
}

std::string EventsText(const Json &client) {
  std::vector<std::string> events;
  for (const Json &event : client.value("events", Json::array())) events.push_back(EventText(event.get<uint32_t>()));
  return events.empty() ? "-" : Join(events, ",");
}

std::string PatternsText(const Json &client) {
  const auto patterns = client.value("patterns", std::vector<std::string>());
  return patterns.empty() ? "-" : Join(patterns, ",");
}

constexpr size_t kUserColumn = 2;

class ListVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.AddFlag("-v,--verbose", verbose_,
                    "Also list memory held in the server, subscriptions, restful patterns and this command itself");
  }

  // From the gateways' latest status, whose age is shown.
  ExitCode RunFleet(Fleet &fleet, const Common &common) override {
    const std::vector<Gateway> gateways = fleet.Survey(Fleet::Need::kBus);
    FleetReport report(fleet, common.json, gateways);
    std::vector<Table::Column> columns = Columns();
    columns.insert(columns.begin(), {{"GATEWAY"}, {"AGE", Align::kRight, 4}});
    Table table(std::move(columns));
    bool any = false;
    for (const Gateway &gateway : gateways) {
      if (common.json || StatusOf(gateway).outcome != Outcome::kDone) continue;
      AddGateway(gateway, table);
      any = true;
    }
    if (any) table.Print();
    for (const Gateway &gateway : gateways) {
      report.Add(StatusOf(gateway), [&] {
        if (common.json) PrintGateway(gateway);
      });
    }
    return report.Finish();
  }

  ExitCode Run(const Common &common) override {
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    const Json reply = bus.ControlJson(ZOR_MSG_CONTROL_LIST, "", deadline);
    if (common.json) {
      PrintJson(reply);
    } else {
      PrintClients(reply);
    }
    return kExitOk;
  }

 private:
  std::vector<Table::Column> Columns() const {
    std::vector<Table::Column> columns = {{"NAME"},
                                          {"PID", Align::kRight, 1},
                                          {"USER", Align::kLeft, 2},
                                          {"SINCE", Align::kLeft, 3},
                                          {"WAITING", Align::kRight},
                                          {"IN", Align::kRight},
                                          {"OUT", Align::kRight},
                                          {"DROPPED", Align::kRight}};
    if (verbose_)
      columns.insert(columns.end(),
                     {{"HELD", Align::kRight, 4}, {"EVENTS", Align::kLeft, 5}, {"PATTERNS", Align::kLeft, 6}});
    return columns;
  }

  void AddGateway(const Gateway &gateway, Table &table) const {
    const std::string age = StatusAgeText(gateway);
    const Json list = CheckedList(MemberOf(gateway.status, "bus"));
    for (const Json &client : list["clients"]) {
      Table::Row row = RowOf(client);
      row[kUserColumn] = std::to_string(client.value("uid", int64_t{0}));  // a user of that machine
      row.insert(row.begin(), {gateway.name, age});
      table.Add(row);
    }
  }

  static void PrintGateway(const Gateway &gateway) {
    Json object = CheckedList(MemberOf(gateway.status, "bus"));
    object["gateway"] = gateway.name;
    object["time"] = TextOf(gateway.status, "time");
    PrintJson(object);
  }

  void PrintClients(const Json &reply) const {
    Table table(Columns());
    for (const Json &client : reply.value("clients", Json::array())) {
      if (verbose_ || !client.value("self", false)) table.Add(RowOf(client));
    }
    table.Print();
    if (verbose_) PrintAccess(reply.value("server", Json::object()).value("access", Json::object()));
  }

  static void PrintAccess(const Json &access) {
    const std::string mode = access.value("mode", "open");
    if (mode == "open") return;
    Print("access: " + CountText(access, "rules") + " rules, mode " + Escape(mode) + ", " +
          CountText(access, "refused") + " refused, " + CountText(access, "would_be_refused") +
          " would be refused by enforced rules\n");
  }

  Table::Row RowOf(const Json &client) const {
    Table::Row row = {client.value("name", ""), PidText(client),
                      UserText(client),         LocalTimeText(client.value("since", std::time_t{0})),
                      WaitingText(client),      CountText(client, "in"),
                      CountText(client, "out"), CountText(client, "dropped")};
    if (verbose_) row.insert(row.end(), {HeldText(client), EventsText(client), PatternsText(client)});
    return row;
  }

  bool verbose_ = false;
};

}  // namespace

std::unique_ptr<Verb> MakeListVerb() {
  return std::make_unique<ListVerb>();
}

}  // namespace zor::ctl
