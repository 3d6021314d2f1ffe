#include <zor/control_wire.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "programs/messages/message_types.h"
#include "programs/process_state.h"
#include "programs/wait_graph.h"
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
using daemon::Daemon;
using daemon::PendingRequest;
using daemon::ProcessState;
using daemon::StateOf;
using daemon::StateText;
using daemon::WaitChain;
using daemon::Waits;

// No value for a message that needs no reply.
std::optional<PendingRequest> RequestOf(const Json &pending, bool senderInLoop) {
  PendingRequest request{pending.value("to", ""), pending.value("type", 0u), pending.value("sequence", 0u),
                         pending.value("age_ms", uint64_t{0}), Waits::kNo};
  const auto waits = daemon::WaitsForReply(request.type, pending.value("latest", true), senderInLoop);
  if (!waits) return std::nullopt;
  request.waits = *waits;
  return request;
}

Daemon DaemonOf(const Json &client) {
  Daemon daemon;
  daemon.name = client.value("name", "");
  if (client.value("local", true)) daemon.pid = client.value("pid", 0);
  const ProcessState process = daemon.pid > 0 ? StateOf(daemon.pid) : ProcessState();
  daemon.state = process.letter;
  const Json waiting = client.value("waiting", Json::object());
  daemon.unread = waiting.value("messages", uint64_t{0});
  daemon.unreadAtLeast = waiting.value("at_least", false);
  daemon.unreadMs = waiting.value("oldest_ms", uint64_t{0});
  daemon.refused = client.value("refused", uint64_t{0});
  daemon.refusedMs = client.value("refused_ms", uint64_t{0});
  for (const Json &pending : client.value("pending", Json::array())) {
    if (auto request = RequestOf(pending, process.inLoop)) daemon.pending.push_back(std::move(*request));
  }
  return daemon;
}

// A request and its sender.
struct Waiter {
  const Daemon *from;
  const PendingRequest *request;
};

class Report {
 public:
  Report(const std::vector<Daemon> &daemons, const Daemon &subject) : chain_(FollowWaits(daemons, subject)) {
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

  void PrintText() const {
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

  Json AsJson() const {
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

 private:
  void Add(const Waiter &waiter) {
    for (const Waiter &each : waiters_) {
      if (each.request == waiter.request) return;
    }
    waiters_.push_back(waiter);
  }

  WaitChain chain_;
  std::string verdict_;
  std::vector<Waiter> waiters_;
};

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

std::vector<Daemon> DaemonsOnTheBus(const Deadline &deadline) {
  std::vector<Daemon> daemons;
  Bus bus(deadline);
  const Json reply = bus.ControlJson(ZOR_MSG_CONTROL_LIST, "", deadline);
  for (const Json &client : reply.value("clients", Json::array())) {
    if (!client.value("self", false)) daemons.push_back(DaemonOf(client));
  }
  return daemons;
}

void PrintAll(const std::vector<Report> &chains, bool json) {
  if (json) {
    Json array = Json::array();
    for (const Report &chain : chains) array.push_back(chain.AsJson());
    return PrintJson({{"chains", array}});
  }
  if (chains.empty()) Print("no daemon has waited for another for a second\n");
  for (const Report &chain : chains) {
    if (&chain != &chains.front()) Print("\n");
    chain.PrintText();
  }
}

class WhyVerb : public Verb {
 public:
  void Declare(CLI::App &app) override {
    app.add_option("NAME", name_, "The daemon that does not reply")->type_name("");
    app.add_flag("--all", all_, "Every chain of daemons that wait for each other for a second or longer");
  }

  ExitCode Run(const Common &common) override {
    if (all_ != name_.empty()) {
      throw Failure(kExitUsage, "give the name of a daemon, or --all", "zorctl why --help explains it");
    }
    if (!all_) NameField(name_);  // throws Failure for an invalid one
    const std::vector<Daemon> daemons = DaemonsOnTheBus(common.deadline());
    if (all_) {
      std::vector<Report> chains;
      for (const Daemon *daemon : Beginnings(daemons)) chains.emplace_back(daemons, *daemon);
      PrintAll(chains, common.json);
      return kExitOk;
    }
    const Daemon *subject = FindDaemon(daemons, name_);
    if (subject == nullptr) throw NoSuchDaemon(name_);
    const Report report(daemons, *subject);
    common.json ? PrintJson(report.AsJson()) : report.PrintText();
    return kExitOk;
  }

 private:
  std::string name_;
  bool all_ = false;
};

}  // namespace

std::unique_ptr<Verb> MakeWhyVerb() {
  return std::make_unique<WhyVerb>();
}

}  // namespace zor::ctl
