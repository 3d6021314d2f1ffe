#include "zorctl/fleet_sum.h"

#include <algorithm>
#include <array>

#include "zorctl/text.h"

namespace zor::ctl {
namespace {

struct OutcomeRow {
  Outcome outcome;
  const char *key;  // in replies and in JSON
  bool inReplies;
  const char *text;
  ExitCode code;
  bool named;
};

// In the order of the sum.
constexpr std::array kOutcomes = {
    OutcomeRow{Outcome::kDone, "done", true, "done", kExitOk, false},
    OutcomeRow{Outcome::kRefused, "refused", true, "refused", kExitRefused, false},
    OutcomeRow{Outcome::kInvalid, "invalid", true, "found it invalid", kExitRefused, false},
    OutcomeRow{Outcome::kBusy, "busy", true, "busy", kExitRefused, false},
    OutcomeRow{Outcome::kAbsent, "absent", true, "without that daemon", kExitNotFound, false},
    OutcomeRow{Outcome::kGone, "gone", true, "lost the daemon meanwhile", kExitTimeOver, false},
    OutcomeRow{Outcome::kLate, "late", true, "too late", kExitTimeOver, false},
    OutcomeRow{Outcome::kMalformed, "malformed", false, "malformed", kExitFailure, true},
    OutcomeRow{Outcome::kNoReply, "no_reply", false, "did not reply", kExitTimeOver, true},
    OutcomeRow{Outcome::kOffline, "offline", false, "offline", kExitTimeOver, true},
    OutcomeRow{Outcome::kNoStatus, "no_status", false, "without a status", kExitTimeOver, true},
    OutcomeRow{Outcome::kUnknown, "unknown", false, "unknown", kExitNotFound, true},
    OutcomeRow{Outcome::kNotAsked, "not_asked", false, "not asked", kExitTimeOver, true},
};

const OutcomeRow &RowOf(Outcome outcome) {
  return *std::find_if(kOutcomes.begin(), kOutcomes.end(), [=](const auto &row) { return row.outcome == outcome; });
}

std::string NamesText(const std::set<std::string> &names) {
  constexpr size_t kListed = 10;
  std::vector<std::string> listed;
  for (const std::string &name : names) {
    if (listed.size() == kListed)
      return Join(listed, ", ") + " and " + std::to_string(names.size() - kListed) + " more";
    listed.push_back(Escape(name));
  }
  return Join(listed, ", ");
}

}  // namespace

std::optional<Outcome> ParseOutcome(std::string_view text) {
  for (const OutcomeRow &row : kOutcomes) {
    if (row.inReplies && row.key == text) return row.outcome;
  }
  return std::nullopt;
}

void FleetSum::Count(const std::string &gateway, Outcome outcome) {
  gateways_[outcome].insert(gateway);
}

std::string FleetSum::Text() const {
  size_t total = 0;
  std::vector<std::string> counts, named;
  for (const OutcomeRow &row : kOutcomes) {
    const auto found = gateways_.find(row.outcome);
    if (found == gateways_.end()) continue;
    total += found->second.size();
    const std::string text = std::to_string(found->second.size()) + " " + row.text;
    row.named ? named.push_back(text + ": " + NamesText(found->second)) : counts.push_back(text);
  }
  std::string text = std::to_string(total) + (total == 1 ? " gateway" : " gateways");
  if (total > 0) text += ": ";
  text += Join(counts, ", ");
  if (!counts.empty() && !named.empty()) text += ", ";
  text += Join(named, "; ");
  if (surplus_ > 0)
    text += "; " + std::to_string(surplus_) + (surplus_ == 1 ? " reply" : " replies") + " twice or too late";
  return text;
}

ForeignJson FleetSum::AsJson() const {
  ForeignJson sum = {{"gateways", 0}};
  size_t total = 0;
  for (const OutcomeRow &row : kOutcomes) {
    const auto found = gateways_.find(row.outcome);
    if (found == gateways_.end()) continue;
    total += found->second.size();
    row.outcome == Outcome::kDone ? sum[row.key] = found->second.size() : sum[row.key] = found->second;
  }
  sum["gateways"] = total;
  if (surplus_ > 0) sum["surplus"] = surplus_;
  return {{"sum", sum}};
}

ExitCode FleetSum::code() const {
  constexpr std::array kGravest = {kExitFailure, kExitTimeOver, kExitRefused, kExitNotFound};
  for (const ExitCode code : kGravest) {
    for (const auto &[outcome, names] : gateways_) {
      if (RowOf(outcome).code == code) return code;
    }
  }
  return kExitOk;
}

std::string FailureText(const FleetAnswer &answer) {
  return RowOf(answer.outcome).text + (answer.reason.empty() ? "" : ": " + Escape(answer.reason));
}

ForeignJson FailureJson(const FleetAnswer &answer) {
  ForeignJson json = {{"gateway", answer.gateway}, {"result", RowOf(answer.outcome).key}};
  if (!answer.reason.empty()) json["reason"] = answer.reason;
  return json;
}

Failure FailureOf(const FleetAnswer &answer) {
  return {RowOf(answer.outcome).code, "gateway " + Escape(answer.gateway) + ": " + FailureText(answer),
          "zorctl gateways shows what is known of it"};
}

}  // namespace zor::ctl
