// The reader of access rules: the input is a file of rules, and of observations.
#include <algorithm>
#include <iterator>

#include "fuzz.h"
#include "programs/access/guard.h"
#include "programs/access/learn.h"
#include "programs/access/shadow.h"
#include "programs/limits.h"

namespace {

using zor::fuzz::Require;
using namespace zor::access;  // NOLINT(google-build-using-namespace): the code under test

const Accounts &Nobodies() {
  static const Accounts accounts = Accounts::OfDirectory("/nonexistent");
  return accounts;
}

// Peers of every kind, with and without what may be unknown.
std::vector<Identity> Peers() {
  std::vector<Identity> peers(5);
  peers[1].user = 7;
  peers[1].groups = {7, 8};
  peers[2] = peers[1];
  peers[2].unit = "a.service";
  peers[2].executable = "/a";
  peers[4].board = peers[3].board = 0x0A000001;
  peers[4].certificate = "modem";
  return peers;
}

constexpr Action kActions[] = {
    {Verb::kOwn, 0, "a"},          {Verb::kServe, 0, "/a/*"},       {Verb::kSend, 0x5009, "cms"},
    {Verb::kPublish, 0x2DA01, ""}, {Verb::kSubscribe, 0x2DA00, ""}, {Verb::kSubscribe, 0x2DA01, "a"},
    {Verb::kPost, 0, "a"},         {Verb::kControl, 0xFF000, ""},   {Verb::kModule, 8, ""}};

void CheckDecisions(const Rules &rules) {
  Guard guard(rules);
  for (const Identity &peer : Peers()) {
    const Guard::Subject subject = guard.Admit(peer);
    for (const Action &action : kActions) {
      const Verdict verdict = rules.Decide(peer, action);
      for (int times = 0; times < 2; ++times) {
        const Guard::Answer answer = guard.Ask(subject, action);
        Require(answer.verdict.reason == verdict.reason && answer.verdict.allowed == verdict.allowed,
                "what is kept is what the rules say");
        Require(answer.passes || (!verdict.allowed && rules.mode() == Mode::kEnforce), "observing refuses nothing");
      }
      Require(rules.Explain(verdict).find('\n') == std::string::npos, "an explanation is one line");
    }
  }
  const std::vector<Shadow> shadows = FindShadows(rules);
  for (const Identity &peer : Peers()) {
    for (const Action &action : kActions) {
      const Rule *rule = rules.Decide(peer, action).rule;
      Require(std::none_of(
                  shadows.begin(), shadows.end(),
                  [&](const Shadow &each) { return rule != nullptr && each.rule->place.line == rule->place.line; }),
              "a rule that never decides does not");
    }
  }
}

void CheckRules(const std::string &text) {
  std::vector<std::string> mistakes;
  const auto rules = Rules::FromText(text, "f", Nobodies(), mistakes);
  Require(rules.has_value() == mistakes.empty(), "rules without a mistake, or mistakes");
  for (const std::string &mistake : mistakes) {
    Require(mistake.starts_with("f:") && std::none_of(mistake.begin(), mistake.end(), [](char c) { return c < ' '; }),
            "a mistake has its place, and is one printable line");
  }
  if (!rules) return;
  for (const Rule &rule : rules->list()) {
    const auto again = Rules::FromText(rule.text, "f", Nobodies(), mistakes);
    Require(again && again->list().size() == 1 && again->list()[0].allows == rule.allows,
            "a rule is read as it is shown");
  }
  CheckDecisions(*rules);
}

void CheckObservations(const std::string &text) {
  std::vector<std::string> mistakes;
  const auto learned = Learn(text, "f", Nobodies(), mistakes);
  if (learned) Require(Rules::FromText(*learned, "f", Nobodies(), mistakes).has_value(), "what is learned can be read");
}

void CheckWord(const std::string &text) {
  if (text.empty()) return;
  const auto pattern = ParsePattern(EscapeWord(text));
  Require(pattern && !pattern->isPrefix && pattern->text == text, "any text can be written in a rule");
  const auto unit = UnitOf(text);
  Require(!unit || unit->find('/') == std::string::npos, "a unit is one component");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string text(data, data + size);
  CheckRules(text);
  CheckObservations(text);
  CheckWord(zor::fuzz::TextOf(data, size));
  return 0;
}
