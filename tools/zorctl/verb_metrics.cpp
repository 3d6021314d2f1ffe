// Measurements for collectors such as a monitoring system's agent, which runs this command or reads its output.
#include <zor/control_wire.h>

#include <nlohmann/json.hpp>

#include "programs/metrics/bus_metrics.h"
#include "programs/metrics/handler_metrics.h"
#include "zorctl/bus.h"
#include "zorctl/fleet_report.h"
#include "zorctl/gateway_metrics.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using metrics::Metrics;

class MetricsVerb : public Verb {
 public:
  void Declare(Options &) override {}

  ExitCode Run(const Common &common) override {
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    Metrics all;
    const auto list = bus.ControlJson(ZOR_MSG_CONTROL_LIST, "", deadline);
    metrics::AddBusMetrics(list, all);
    metrics::AddHandlerMetrics(list, all);
    Write(all, common);
    return kExitOk;
  }

  // A gateway that is offline is a measurement too, so a scrape of the fleet succeeds.
  ExitCode RunFleet(Fleet &fleet, const Common &common) override {
    Metrics all;
    for (const Gateway &gateway : fleet.Survey(Fleet::Need::kBus)) {
      if (!gateway.known()) throw FailureOf(StatusOf(gateway));
      AddGatewayMetrics(gateway, all);
    }
    Write(all, common);
    return kExitOk;
  }

 private:
  static void Write(const Metrics &all, const Common &common) {
    Print(common.json ? JsonLine(all.AsJson()) : all.Text());
  }
};

}  // namespace

std::unique_ptr<Verb> MakeMetricsVerb() {
  return std::make_unique<MetricsVerb>();
}

}  // namespace zor::ctl
