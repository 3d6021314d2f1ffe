// The rules of who may do what: which one decides, whether a file is sound, and rules from what was observed. That
// reads files, and needs no server; a server itself is told to read its rules anew, and asked what they have refused.
#include <zor/control_wire.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "programs/access/learn.h"
#include "programs/access/rules.h"
#include "programs/access/shadow.h"
#include "programs/limits.h"
#include "programs/paths.h"
#include "zorctl/access_query.h"
#include "zorctl/bus.h"
#include "zorctl/input_file.h"
#include "zorctl/notify_channel.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kMaxObservations = 4u << 20;

const char *NameOf(access::Reason reason) {
  switch (reason) {
    case access::Reason::kRule:
      return "rule";
    case access::Reason::kUnmatched:
      return "no_rule";
    case access::Reason::kHeld:
      return "held";
    case access::Reason::kOpen:
      break;
  }
  return "open";
}

class AccessVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options
        .Add("ACTION", action_,
             "explain: who may do something, and by which rule; test: whether files of rules are sound; learn: "
             "write rules that allow what was observed; reload: let a server read its rules anew; refused: "
             "what they have refused, or would have, since it started; learn reads that")
        .Required()
        .OneOf({"explain", "test", "learn", "reload", "refused"})
        .Type("");
    options
        .Add("WORDS", words_,
             "With explain: WHO and WHAT in the words of a rule; with test: files; with learn: a file of "
             "observations, - for standard input, the default; with reload and refused: msgsvr, the default, or "
             "notifyserver")
        .Type("");
    options.Add("--rules", rules_, "With explain: the directory or the file of the rules").Type("PATH").ShowDefault();
    holder_ =
        options.Add("--holder", holderText_, "With explain, of a name: the user that has it already").Type("USER");
    options
        .Add("--accounts", accountsPath_,
             "Directory of the passwd and group files to take users and groups from, such as that of an image")
        .Type("PATH");
  }

  ExitCode Run(const Common &common) override {
    json_ = common.json;
    if (action_ == "reload") return Reload(common.deadline());
    if (action_ == "refused") return PrintRefused(common.deadline());
    const access::Accounts accounts =
        accountsPath_.empty() ? access::Accounts::OfSystem() : access::Accounts::OfDirectory(accountsPath_);
    if (action_ == "explain") return Explain(accounts);
    return action_ == "test" ? Test(accounts) : Learn(accounts);
  }

 private:
  ExitCode Reload(const Deadline &deadline) const {
    const Json rules = AsksNotifyserver() ? NotifyChannel(deadline).ReloadRules()
                                          : Bus(deadline).ControlJson(ZOR_MSG_CONTROL_ACCESS_RELOAD, "", deadline);
    if (json_) {
      PrintJson(rules);
    } else {
      Print(std::to_string(rules.value("rules", 0)) + " rules, mode " + Escape(rules.value("mode", "")) + "\n");
    }
    return kExitOk;
  }

  ExitCode PrintRefused(const Deadline &deadline) const {
    const std::string seen = AsksNotifyserver() ? NotifyChannel(deadline).Refused()
                                                : Bus(deadline).Control(ZOR_MSG_CONTROL_ACCESS_REFUSED, "", deadline);
    json_ ? PrintJson({{"refused", seen}}) : Print(EscapeLines(seen));
    return kExitOk;
  }

  bool AsksNotifyserver() const {
    const std::string server = words_.empty() ? "msgsvr" : words_.front();
    if (words_.size() <= 1 && (server == "msgsvr" || server == "notifyserver")) return server == "notifyserver";
    throw Failure(kExitUsage, action_ + " takes the name of a server", "use msgsvr or notifyserver");
  }

  ExitCode Explain(const access::Accounts &accounts) const {
    const AccessQuery query = ParseAccessQuery(words_, accounts);
    std::vector<std::string> mistakes;
    const bool isDefault = rules_ == access::Rules::kDirectory;
    const auto rules = access::Rules::Load(isDefault ? daemon::FixedPath(rules_) : rules_, accounts, mistakes);
    if (!rules) throw Failure(kExitUsage, Escape(mistakes.front()), "zorctl access test lists all mistakes of a file");
    access::Identity holder;
    if (holder_.given()) {
      holder.user = accounts.User(holderText_);
      if (!holder.user) throw Failure(kExitNotFound, "no such user: " + Escape(holderText_), "give a name or a number");
    }
    const access::Action action = {query.verb, query.number, query.name, holder.user ? &holder : nullptr};
    const access::Verdict verdict = rules->Decide(query.who, action);
    json_ ? PrintVerdictJson(*rules, verdict) : PrintVerdict(*rules, verdict);
    return verdict.allowed ? kExitOk : kExitRefused;
  }

  static void PrintVerdict(const access::Rules &rules, const access::Verdict &verdict) {
    const bool observes = rules.mode() == access::Mode::kObserve;
    const char *refused = observes ? "would be refused" : "refused";
    Print(std::string(verdict.allowed ? "allowed" : refused) + ": " + EscapeLines(rules.Explain(verdict)) + "\n");
    if (observes && !verdict.allowed) Print("It passes, because the rules are only observed: mode = observe.\n");
  }

  static void PrintVerdictJson(const access::Rules &rules, const access::Verdict &verdict) {
    Json result = {{"allowed", verdict.allowed},
                   {"mode", rules.mode() == access::Mode::kObserve ? "observe" : "enforce"},
                   {"reason", NameOf(verdict.reason)}};
    if (verdict.rule != nullptr) {
      result["file"] = verdict.rule->place.file;
      result["line"] = verdict.rule->place.line;
      result["rule"] = verdict.rule->text;
    }
    PrintJson(result);
  }

  ExitCode Test(const access::Accounts &accounts) const {
    if (words_.empty()) throw Failure(kExitUsage, "no file", "name a file of rules, or a directory of them");
    Json all = Json::array();
    std::size_t count = 0;
    for (const std::string &path : words_) {
      std::vector<std::string> mistakes;
      const auto rules = access::Rules::Load(path, accounts, mistakes);
      std::vector<std::string> warnings;
      if (rules) {
        for (const auto &[rule, earlier] : access::FindShadows(*rules)) {
          warnings.push_back(rule->place.Text() + ": never decides, because of " + earlier->place.Text());
        }
      }
      count += mistakes.size();
      const std::size_t ruleCount = rules ? rules->list().size() : 0;
      all.push_back({{"path", path}, {"mistakes", mistakes}, {"warnings", warnings}, {"rules", ruleCount}});
      if (json_) continue;
      for (const std::string &each : mistakes) Print(EscapeLines(each) + "\n");
      for (const std::string &each : warnings) Print("warning: " + EscapeLines(each) + "\n");
      if (rules) Print(Escape(path) + ": " + std::to_string(ruleCount) + " rules\n");
    }
    if (json_) PrintJson(all);
    if (count == 0) return kExitOk;
    throw Failure(kExitUsage, "mistakes: " + std::to_string(count), "rules with a mistake are not loaded at all");
  }

  ExitCode Learn(const access::Accounts &accounts) const {
    if (words_.size() > 1) throw Failure(kExitUsage, "more than one file", "join them");
    const std::string file = words_.empty() ? "-" : words_.front();
    std::vector<std::string> mistakes;
    const auto rules = access::Learn(ReadInputFile(file, kMaxObservations), file, accounts, mistakes);
    if (!rules) throw Failure(kExitUsage, Escape(mistakes.front()), "observations are lines seen = COUNT WHO WHAT");
    json_ ? PrintJson({{"rules", *rules}}) : Print(*rules);
    return kExitOk;
  }

  std::string action_;
  std::vector<std::string> words_;
  std::string rules_ = access::Rules::kDirectory;
  std::string holderText_;
  std::string accountsPath_;
  Option holder_;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Verb> MakeAccessVerb() {
  return std::make_unique<AccessVerb>();
}

}  // namespace zor::ctl
