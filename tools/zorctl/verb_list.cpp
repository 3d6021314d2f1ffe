#include <zor/control_wire.h>
#include <zor/event.h>

#include <CLI/CLI.hpp>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "zorctl/bus.h"
#include "zorctl/format.h"
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
  const char *module = ZOR_EVT_GetEventModuleNameByEventType(type);
  return module == nullptr ? HexText(type) : module;
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

class ListVerb : public Verb {
 public:
  void Declare(CLI::App &app) override {
    app.add_flag("-v,--verbose", verbose_,
                 "Also list memory held in the server, subscriptions, restful patterns and this command itself");
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
  void PrintClients(const Json &reply) const {
    std::vector<Table::Column> columns = {{"NAME"},
                                          {"PID", Align::kRight},
                                          {"USER"},
                                          {"SINCE"},
                                          {"WAITING", Align::kRight},
                                          {"IN", Align::kRight},
                                          {"OUT", Align::kRight},
                                          {"DROPPED", Align::kRight}};
    if (verbose_) columns.insert(columns.end(), {{"HELD", Align::kRight}, {"EVENTS"}, {"PATTERNS"}});
    Table table(std::move(columns));
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
