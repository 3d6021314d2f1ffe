#include <zor/control_wire.h>

#include <nlohmann/json.hpp>
#include <string>

#include "zorctl/bus.h"
#include "zorctl/fleet_report.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"
#include "zorctl/wait_report.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;

void PrintAll(const std::vector<WaitReport> &chains, bool json) {
  if (json) {
    Json array = Json::array();
    for (const WaitReport &chain : chains) array.push_back(chain.AsJson());
    return PrintJson({{"chains", array}});
  }
  if (chains.empty()) Print("no daemon has waited for another for a second\n");
  for (const WaitReport &chain : chains) {
    if (&chain != &chains.front()) Print("\n");
    chain.PrintText();
  }
}

class WhyVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("NAME", name_, "The daemon that does not reply").Type("");
    options.AddFlag("--all", all_, "Every chain of daemons that wait for each other for a second or longer");
  }

  ExitCode Run(const Common &common) override {
    CheckWords();
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    const std::vector<daemon::Daemon> daemons =
        DaemonsOf(bus.ControlJson(ZOR_MSG_CONTROL_LIST, "", deadline), Processes::kHere);
    if (all_) {
      PrintAll(ReportsOfAll(daemons), common.json);
      return kExitOk;
    }
    const daemon::Daemon *subject = FindDaemon(daemons, name_);
    if (subject == nullptr) throw bus.NoSuchDaemon(name_);
    const WaitReport report(daemons, *subject);
    common.json ? PrintJson(report.AsJson()) : report.PrintText();
    return kExitOk;
  }

  // From the gateways' latest status: their processes are not here to be looked at.
  ExitCode RunFleet(Fleet &fleet, const Common &common) override {
    CheckWords();
    const std::vector<Gateway> gateways = fleet.Survey(Fleet::Need::kBus);
    FleetReport report(fleet, common.json, gateways);
    for (const Gateway &gateway : gateways) {
      const std::vector<daemon::Daemon> daemons =
          DaemonsOf(CheckedList(MemberOf(gateway.status, "bus")), Processes::kElsewhere);
      FleetAnswer answer = StatusOf(gateway);
      if (answer.outcome == Outcome::kDone && !all_ && FindDaemon(daemons, name_) == nullptr) {
        answer.outcome = Outcome::kAbsent;
      }
      report.Add(answer, [&] { PrintGateway(report, gateway, daemons); });
    }
    return report.Finish();
  }

 private:
  void CheckWords() const {
    if (all_ != name_.empty()) {
      throw Failure(kExitUsage, "give the name of a daemon, or --all", "zorctl why --help explains it");
    }
    if (!all_) NameField(name_);  // throws Failure for an invalid one
  }

  void PrintGateway(const FleetReport &report, const Gateway &gateway,
                    const std::vector<daemon::Daemon> &daemons) const {
    const std::vector<WaitReport> chains =
        all_ ? ReportsOfAll(daemons) : std::vector{WaitReport(daemons, *FindDaemon(daemons, name_))};
    const std::string age = StatusAgeText(gateway);
    if (report.json()) {
      Json array = Json::array();
      for (const WaitReport &chain : chains) array.push_back(chain.AsJson());
      PrintJson({{"gateway", gateway.name}, {"time", TextOf(gateway.status, "time")}, {"chains", array}});
    } else if (report.isForOne()) {
      Print("gateway " + Escape(gateway.name) + ", " + age + " ago:\n");
      PrintAll(chains, false);
    } else if (chains.empty()) {
      report.PrintLine(gateway.name, "no daemon has waited for another for a second (" + age + " ago)");
    }
    for (const WaitReport &chain : chains) {
      if (report.json() || report.isForOne()) break;
      report.PrintLine(gateway.name, Escape(chain.verdict()) + " (" + age + " ago)");
    }
  }

  std::string name_;
  bool all_ = false;
};

}  // namespace

std::unique_ptr<Verb> MakeWhyVerb() {
  return std::make_unique<WhyVerb>();
}

}  // namespace zor::ctl
