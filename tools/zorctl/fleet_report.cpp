#include "zorctl/fleet_report.h"

#include <algorithm>

#include "zorctl/format.h"
#include "zorctl/output.h"
#include "zorctl/text.h"

namespace zor::ctl {

std::optional<FleetAnswer> AbsenceOf(const Gateway &gateway) {
  if (gateway.online()) return std::nullopt;
  if (!gateway.presence.is_null()) return FleetAnswer{gateway.name, Outcome::kOffline, gateway.state(), {}};
  if (gateway.faults.empty()) return FleetAnswer{gateway.name, Outcome::kUnknown, "", {}};
  return FleetAnswer{gateway.name, Outcome::kMalformed, Join(gateway.faults, ", "), {}};
}

FleetAnswer StatusOf(const Gateway &gateway) {
  if (auto absence = AbsenceOf(gateway)) return *absence;
  if (!gateway.status.is_null()) return {gateway.name, Outcome::kDone, "", {}};
  return {
      gateway.name, gateway.faults.empty() ? Outcome::kNoStatus : Outcome::kMalformed, Join(gateway.faults, ", "), {}};
}

std::string StatusAgeText(const Gateway &gateway) {
  const auto age = gateway.statusAge();
  return age ? LongAgeText(*age) : "-";
}

FleetReport::FleetReport(const Fleet &fleet, bool json, const std::vector<Gateway> &gateways)
    : json_(json), isForOne_(fleet.isForOne() && !json) {
  for (const Gateway &gateway : gateways) columns_ = std::max(columns_, Width(Escape(gateway.name)));
}

void FleetReport::Add(const FleetAnswer &answer, const std::function<void()> &print) {
  sum_.Count(answer.gateway, answer.outcome);
  if (answer.outcome == Outcome::kDone) {
    print();
  } else if (json_) {
    Print(JsonLine(FailureJson(answer)));
  } else if (isForOne_) {
    throw FailureOf(answer);
  } else {
    PrintLine(answer.gateway, FailureText(answer));
  }
}

void FleetReport::PrintLine(const std::string &gateway, const std::string &text) const {
  Print(PadRight(Escape(gateway), columns_) + "  " + text + "\n");
}

ExitCode FleetReport::Finish() {
  if (json_) {
    Print(JsonLine(sum_.AsJson()));
  } else if (!isForOne_) {
    Print(Bold(sum_.Text()) + "\n");
  }
  return sum_.code();
}

}  // namespace zor::ctl
