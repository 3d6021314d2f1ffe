#include "zorctl/wait_report.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "programs/bus_view/list.h"
#include "programs/messages/message_types.h"
#include "programs/process_state.h"
#include "zorctl/format.h"
#include "zorctl/output.h"
#include "zorctl/table.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;
using Align = Table::Align;
using daemon::Daemon;
using daemon::PendingRequest;
using daemon::StateText;
using daemon::WaitChain;

// The daemons at which the chains begin that have lasted a second: those that wait and for whom no other waits. A cycle
// without such a daemon begins at any of its members.
std::vector<const Daemon *> Beginnings(const std::vector<Daemon> &daemons) {
  constexpr uint64_t kLeastMs = 1000;
  std::set<const Daemon *> awaited, inChains;
  std::vector<const Daemon *> waiting, beginnings;
  for (const Daemon &daemon : daemons) {
    const PendingRequest *request = daemon.Awaited();
    if (request == nullptr || request->ageMs < kLeastMs) continue;
    waiting.push_back(&daemon);
    awaited.insert(FindDaemon(daemons, request->to));
  }
  const auto begin = [&](const Daemon *daemon) {
    beginnings.push_back(daemon);
    const WaitChain chain = FollowWaits(daemons, *daemon);
    inChains.insert(chain.daemons.begin(), chain.daemons.end());
  };
  for (const Daemon *daemon : waiting) {
    if (!awaited.contains(daemon)) begin(daemon);
  }
  for (const Daemon *daemon : waiting) {
    if (!inChains.contains(daemon)) begin(daemon);
  }
  return beginnings;
}

}  // namespace

std::vector<Daemon> DaemonsOf(const Json &list, Processes processes) {
  std::vector<Daemon> daemons;
  const busview::ProcessReader read = processes == Processes::kHere ? daemon::StateOf : busview::UnknownProcess;
  for (busview::Client &client : busview::SampleOf(list, {}, read).clients) daemons.push_back(std::move(client.daemon));
  return daemons;
}

WaitReport::WaitReport(const std::vector<Daemon> &daemons, const Daemon &subject)
    : chain_(FollowWaits(daemons, subject)) {
  verdict_ = Verdict(chain_, CountRequestsTo(daemons, subject.name));
  for (const Daemon *daemon : chain_.daemons) {
    if (const PendingRequest *awaited = daemon->Awaited()) waiters_.push_back({daemon, awaited});
  }
  // Those of the chain come first, then the subject's other requests and the requests to it.
  for (const Daemon &daemon : daemons) {
    for (const PendingRequest &request : daemon.pending) {
      if (&daemon == &subject || request.to == subject.name) Add({&daemon, &request});
    }
  }
}

void WaitReport::Add(const Waiter &waiter) {
  for (const Waiter &each : waiters_) {
    if (each.request == waiter.request) return;
  }
  waiters_.push_back(waiter);
}

void WaitReport::PrintText() const {
  Print(Bold(Escape(verdict_)) + "\n\n");
  Table daemons(
      {{"DAEMON"}, {"PID", Align::kRight}, {"PROCESS"}, {"UNREAD", Align::kRight}, {"OLDEST", Align::kRight}});
  for (const Daemon *daemon : chain_.daemons) {
    daemons.Add({daemon->name, daemon->pid > 0 ? std::to_string(daemon->pid) : "-",
                 std::string(StateText(daemon->state)),
                 (daemon->unreadAtLeast ? ">=" : "") + std::to_string(daemon->unread),
                 daemon->unread == 0 ? "-" : AgeText(daemon->unreadMs)});
  }
  daemons.Print();
  for (const Daemon *daemon : chain_.daemons) {
    if (daemon->refused == 0) continue;
    Print("\n" + Escape(daemon->name) + " did not read: " + std::to_string(daemon->refused) +
          " messages to it were refused, the latest " + AgeText(daemon->refusedMs) + " ago\n");
  }
  if (waiters_.empty()) return;
  Print("\n");
  Table requests({{"FROM"}, {"TO"}, {"AGE", Align::kRight}, {"SEQUENCE", Align::kRight}, {"TYPE"}, {"WAITS"}});
  for (const Waiter &each : waiters_) {
    requests.Add({each.from->name, each.request->to.empty() ? "(barrier)" : each.request->to,
                  AgeText(each.request->ageMs), std::to_string(each.request->sequence),
                  messages::TypeText(each.request->type), std::string(WaitsText(each.request->waits))});
  }
  requests.Print();
}

Json WaitReport::AsJson() const {
  Json daemons = Json::array(), requests = Json::array(), cycle = Json::array();
  for (const Daemon *daemon : chain_.daemons) {
    daemons.push_back({{"name", daemon->name},
                       {"pid", daemon->pid},
                       {"process", StateText(daemon->state)},
                       {"unread", daemon->unread},
                       {"at_least", daemon->unreadAtLeast},
                       {"oldest_ms", daemon->unreadMs}});
    if (daemon->refused == 0) continue;
    daemons.back()["refused"] = daemon->refused;
    daemons.back()["refused_ms"] = daemon->refusedMs;
  }
  for (const Waiter &each : waiters_) {
    requests.push_back({{"from", each.from->name},
                        {"to", each.request->to},
                        {"type", each.request->type},
                        {"sequence", each.request->sequence},
                        {"age_ms", each.request->ageMs},
                        {"waits", WaitsText(each.request->waits)}});
  }
  for (size_t i = chain_.cycle.value_or(chain_.daemons.size()); i < chain_.daemons.size(); ++i) {
    cycle.push_back(chain_.daemons[i]->name);
  }
  return {{"verdict", verdict_}, {"chain", daemons}, {"cycle", cycle}, {"requests", requests}};
}

std::vector<WaitReport> ReportsOfAll(const std::vector<Daemon> &daemons) {
  std::vector<WaitReport> reports;
  for (const Daemon *daemon : Beginnings(daemons)) reports.emplace_back(daemons, *daemon);
  return reports;
}

}  // namespace zor::ctl
