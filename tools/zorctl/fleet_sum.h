// What became of each gateway of a verb: one line each, and a sum at the end with the exit code.
#ifndef ZORCTL_FLEET_SUM_H
#define ZORCTL_FLEET_SUM_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "zorctl/exit_code.h"
#include "zorctl/foreign_json.h"

namespace zor::ctl {

enum class Outcome {
  kDone,
  kRefused,
  kInvalid,
  kAbsent,
  kBusy,
  kGone,
  kLate,
  kNoReply,
  kOffline,
  kUnknown,
  kNoStatus,
  kMalformed,
  kNotAsked,
};

// As replies name it; no value for anything else.
std::optional<Outcome> ParseOutcome(std::string_view text);

struct FleetAnswer {
  std::string gateway;
  Outcome outcome = Outcome::kNoReply;
  std::string reason;
  ForeignJson reply;
};

class FleetSum {
 public:
  void Count(const std::string &gateway, Outcome outcome);
  // Replies to no request that is under way: the second one, or one after the time-out.
  void CountSurplus() { ++surplus_; }

  // "97 gateways: 95 done, 1 refused, 1 did not reply: gw0042". The gateways that were not heard are named, the first
  // ten of them; in JSON all.
  std::string Text() const;
  ForeignJson AsJson() const;
  // The gravest outcome's.
  ExitCode code() const;

 private:
  std::map<Outcome, std::set<std::string>> gateways_;
  uint64_t surplus_ = 0;
};

// An answer without success: for a line of text, as JSON, and to end a verb for a single gateway as it would end there.
std::string FailureText(const FleetAnswer &answer);
ForeignJson FailureJson(const FleetAnswer &answer);
Failure FailureOf(const FleetAnswer &answer);

}  // namespace zor::ctl

#endif
