#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "zorctl/fleet_report.h"
#include "zorctl/format.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/table.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Align = Table::Align;

std::string OrDash(const std::string &text) {
  return text.empty() ? "-" : text;
}

std::string SinceText(const ForeignJson &object, const char *name) {
  const auto time = TimeOf(object, name);
  return time ? LocalTimeText(std::chrono::system_clock::to_time_t(*time)) : "-";
}

// The records that wait in the bridge, and how full that makes its queue.
std::string QueueText(const ForeignJson &status) {
  const ForeignJson &queue = MemberOf(status, "queue");
  if (!queue.is_object()) return "-";
  const uint64_t limit = CountOf(queue, "limit_bytes");
  std::string text = std::to_string(CountOf(queue, "records"));
  if (limit > 0) text += " (" + std::to_string(CountOf(queue, "bytes") * 100 / limit) + " %)";
  return text;
}

class GatewaysVerb : public Verb {
 public:
  void Declare(Options &options) override {
    Option online = options.AddFlag("--online", online_, "Only gateways that are online");
    options.AddFlag("--offline", offline_, "Only gateways that are not").Excludes(online);
    options.AddFlag("--unwell", unwell_, "Only gateways that report trouble, are lost or have no current status");
    options.Add("--version", version_, "Only gateways with this version").Type("VERSION");
  }

  ExitCode Run(const Common &) override { throw Failure(kExitUsage, "works on a fleet only", "give --fleet URL"); }

  ExitCode RunFleet(Fleet &fleet, const Common &common) override {
    std::vector<Gateway> listed;
    for (Gateway &gateway : fleet.Survey(Fleet::Need::kStatus)) {
      if (IsWanted(gateway)) listed.push_back(std::move(gateway));
    }
    common.json ? PrintAsJson(listed) : PrintTable(listed);
    const bool allKnown = std::all_of(listed.begin(), listed.end(), [](const Gateway &each) { return each.known(); });
    return allKnown ? kExitOk : kExitNotFound;
  }

 private:
  bool IsWanted(const Gateway &gateway) const {
    if (online_ && !gateway.online()) return false;
    if (offline_ && gateway.online()) return false;
    if (unwell_ && gateway.unwell().empty()) return false;
    return version_.empty() || TextOf(gateway.presence, "version") == version_;
  }

  struct Sum {
    size_t online = 0;
    size_t unwell = 0;
  };

  static Sum SumOf(const std::vector<Gateway> &gateways) {
    Sum sum;
    for (const Gateway &gateway : gateways) {
      if (gateway.online()) ++sum.online;
      if (!gateway.unwell().empty()) ++sum.unwell;
    }
    return sum;
  }

  static std::string SumText(const std::vector<Gateway> &gateways) {
    const Sum sum = SumOf(gateways);
    return std::to_string(gateways.size()) + (gateways.size() == 1 ? " gateway: " : " gateways: ") +
           std::to_string(sum.online) + " online, " + std::to_string(gateways.size() - sum.online) + " not, " +
           std::to_string(sum.unwell) + " unwell";
  }

  static void PrintTable(const std::vector<Gateway> &gateways) {
    Table table({{"GATEWAY"},
                 {"STATE"},
                 {"SINCE", Align::kLeft, 2},
                 {"VERSION", Align::kLeft, 3},
                 {"BROKER", Align::kLeft, 4},
                 {"STATUS", Align::kRight, 1},
                 {"QUEUE", Align::kRight},
                 {"UNWELL"}});
    for (const Gateway &gateway : gateways) {
      table.Add({gateway.name, gateway.state(), SinceText(gateway.presence, "since"),
                 OrDash(ShortTextOf(gateway.presence, "version")),
                 OrDash(ShortTextOf(MemberOf(gateway.status, "line"), "broker")), StatusAgeText(gateway),
                 QueueText(gateway.status), OrDash(Join(gateway.unwell(), "; "))});
    }
    table.Print();
    Print(Bold(SumText(gateways)) + "\n");
  }

  static void PrintAsJson(const std::vector<Gateway> &gateways) {
    for (const Gateway &gateway : gateways) {
      const auto age = gateway.statusAge();
      Print(JsonLine(ForeignJson{{"gateway", gateway.name},
                                 {"state", gateway.state()},
                                 {"since", TextOf(gateway.presence, "since")},
                                 {"version", TextOf(gateway.presence, "version")},
                                 {"status_age_ms", age ? ForeignJson(age->count()) : ForeignJson()},
                                 {"line", MemberOf(gateway.status, "line")},
                                 {"queue", MemberOf(gateway.status, "queue")},
                                 {"unwell", gateway.unwell()}}));
    }
    const Sum sum = SumOf(gateways);
    Print(JsonLine(
        ForeignJson{{"sum", {{"gateways", gateways.size()}, {"online", sum.online}, {"unwell", sum.unwell}}}}));
  }

  bool online_ = false;
  bool offline_ = false;
  bool unwell_ = false;
  std::string version_;
};

}  // namespace

std::unique_ptr<Verb> MakeGatewaysVerb() {
  return std::make_unique<GatewaysVerb>();
}

}  // namespace zor::ctl
