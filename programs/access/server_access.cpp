#include "programs/access/server_access.h"

#include "programs/access/accounts.h"
#include "programs/paths.h"
#include "programs/peer.h"

namespace zor::access {

std::optional<Rules> LoadRules(std::vector<std::string> &mistakes) {
  const std::string path = daemon::FixedPath(Rules::kDirectory);
  if (path.empty()) mistakes.push_back(Rules::kDirectory + std::string(": too long beneath ZOR_ROOT"));
  return path.empty() ? std::nullopt : Rules::Load(path, Accounts::OfSystem(), mistakes);
}

std::optional<Rules> LoadRules(daemon::ProblemLog &log) {
  std::vector<std::string> mistakes;
  auto rules = LoadRules(mistakes);
  for (const std::string &mistake : mistakes) log.Print("%s", mistake.c_str());
  return rules;
}

Reloaded ReloadRules(Guard &guard, const char *label, daemon::ProblemLog &log) {
  std::vector<std::string> mistakes;
  auto rules = LoadRules(mistakes);
  if (!rules) {
    std::string text;
    for (const std::string &mistake : mistakes) text += (text.empty() ? "" : "; ") + mistake;
    log.Print("the rules of access stay as they are: %s", text.c_str());
    return {false, std::move(text)};
  }
  guard.Replace(std::move(*rules));
  const size_t count = guard.rules().list().size();
  const std::string mode = guard.rules().ModeName();
  log.Print("rules of access read anew for %s: %zu, mode %s", label, count, mode.c_str());
  return {true, R"({"rules":)" + std::to_string(count) + R"(,"mode":")" + mode + R"("})"};
}

void LogRefusal(daemon::ProblemLog &log, const daemon::Holder &holder, const char *label, const Guard &guard,
                Guard::Subject subject, const Action &action, const Guard::Answer &answer) {
  if (answer.verdict.allowed) return;
  // What a client chooses must not push the rule out of the line.
  log.PrintOf(holder, "%.160s %s to %s, %.320s: %s", WhatText(action).c_str(),
              answer.passes ? "would be refused" : "refused", label, guard.WhoOf(subject).c_str(),
              guard.rules().Explain(answer.verdict).c_str());
}

ControlAnswer AskControl(Guard &guard, Guard::Subject subject, uid_t user, const Action &action) {
  const Guard::Answer answer = guard.Ask(subject, action);
  const bool decided = !guard.rules().isOpen() && guard.rules().mode() == Mode::kEnforce;
  return {decided ? answer.passes : daemon::IsOperator(user), answer};
}

}  // namespace zor::access
