// The output of a verb on a fleet: a line for each gateway and a sum, or lines of JSON; for one gateway the same as on
// it.
#ifndef ZORCTL_FLEET_REPORT_H
#define ZORCTL_FLEET_REPORT_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zorctl/fleet.h"
#include "zorctl/fleet_sum.h"

namespace zor::ctl {

// Why a gateway cannot be asked; no value if it can.
std::optional<FleetAnswer> AbsenceOf(const Gateway &gateway);
// What its latest status makes of a gateway, for verbs that only read that.
FleetAnswer StatusOf(const Gateway &gateway);

// "12.0 s", or "-" without a status.
std::string StatusAgeText(const Gateway &gateway);

class FleetReport {
 public:
  FleetReport(const Fleet &fleet, bool json, const std::vector<Gateway> &gateways);

  bool json() const { return json_; }
  // Whether the output is text for one gateway alone.
  bool isForOne() const { return isForOne_; }

  // Counts an answer. Prints it unless it is done: then `print` does. Failure for one gateway alone without success.
  void Add(const FleetAnswer &answer, const std::function<void()> &print);
  // A line for a gateway, its text in a column.
  void PrintLine(const std::string &gateway, const std::string &text) const;
  // Prints the sum.
  ExitCode Finish();

  FleetSum &sum() { return sum_; }

 private:
  bool json_;
  bool isForOne_;
  size_t columns_ = 0;
  FleetSum sum_;
};

}  // namespace zor::ctl

#endif
