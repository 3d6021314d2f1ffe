// Measurements for collectors such as a monitoring system's agent, which runs this command or reads its output.
#include <zor/control_wire.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "zorctl/bus.h"
#include "zorctl/bus_metrics.h"
#include "zorctl/fleet_report.h"
#include "zorctl/output.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

class MetricsVerb : public Verb {
 public:
  void Declare(CLI::App &) override {}

  ExitCode Run(const Common &common) override {
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    Metrics metrics;
    AddBusMetrics(bus.ControlJson(ZOR_MSG_CONTROL_LIST, "", deadline), metrics);
    Write(metrics, common);
    return kExitOk;
  }

  // A gateway that is offline is a measurement too, so a scrape of the fleet succeeds.
  ExitCode RunFleet(Fleet &fleet, const Common &common) override {
    Metrics metrics;
    ExitCode code = kExitOk;
    for (const Gateway &gateway : fleet.Survey(Fleet::Need::kBus)) {
      const FleetAnswer answer = StatusOf(gateway);
      if (answer.outcome == Outcome::kUnknown) throw FailureOf(answer);
      AddGatewayMetrics(gateway, metrics);
    }
    Write(metrics, common);
    return code;
  }

 private:
  static void Write(const Metrics &metrics, const Common &common) {
    Print(common.json ? JsonLine(metrics.AsJson()) : metrics.Text());
  }
};

}  // namespace

std::unique_ptr<Verb> MakeMetricsVerb() {
  return std::make_unique<MetricsVerb>();
}

}  // namespace zor::ctl
