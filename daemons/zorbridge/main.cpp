// zorbridge: joins the bus of a gateway to an MQTT broker, through which an operator reaches a fleet of them.
#include <sched.h>
#include <sys/stat.h>

#include "programs/paths.h"
#include "programs/server_main.h"
#include "programs/stop_signal.h"
#include "programs/tls/certificate_name.h"
#include "zorbridge/bridge.h"
#include "zorbridge/outbox.h"
#include "zorbridge/settings.h"

namespace zor::bridge {
namespace {

constexpr daemon::Program kProgram = {
    "zorbridge",
    "Joins the bus of a gateway to an MQTT broker.",
    "/etc/zor/zorbridge.conf",
    kSettingsHelp,
    "log requests from outside",
};

// The queue holds what events say.
constexpr mode_t kUmask = 0077;

bool NameGateway(BridgeSettings &settings, daemon::ProblemLog &problems) {
  if (!settings.gateway.empty()) return true;
  settings.gateway = tls::NameInFile(daemon::FixedPath(settings.certificate));
  if (IsGatewayName(settings.gateway)) return true;
  problems.Print("certificate = %s: cannot be read, or does not have exactly one name of type DNS that names a gateway",
                 settings.certificate.c_str());
  return false;
}

daemon::ExitCode OpenQueue(const BridgeSettings &settings, Outbox &outbox, daemon::ProblemLog &problems) {
  const std::string directory = daemon::ParentOf(settings.queueFile);
  if (!daemon::MakeDirectory(directory)) {
    problems.PrintErrno("%s", directory.c_str());
    return daemon::kExitFailure;
  }
  Outbox::Options options;
  options.path = daemon::FixedPath(settings.queueFile);
  options.gateway = settings.gateway;
  options.queueBytes = settings.queueBytes;
  options.groupBytes = settings.groupBytes;
  options.groupTime = settings.groupTime;
  options.dailyBytes = settings.dailyBytes;
  return outbox.Open(options, problems);
}

// So that waking up for an event does not take the processor from the daemons that act on it. Without the permission
// only that is lost.
void YieldToDaemons() {
  const sched_param none = {};
  ::sched_setscheduler(0, SCHED_BATCH, &none);
}

int Run(BridgeSettings settings, daemon::ProblemLog &problems, bool verbose) {
  ::umask(kUmask);
  YieldToDaemons();
  const daemon::StopSignal stop;
  if (!NameGateway(settings, problems)) return daemon::kExitSettings;
  Outbox outbox;
  const daemon::ExitCode opened = OpenQueue(settings, outbox, problems);
  if (opened != daemon::kExitOk) return opened;
  Bridge bridge(settings, outbox, problems, verbose);
  return bridge.Run(stop);
}

}  // namespace
}  // namespace zor::bridge

int main(int count, char **arguments) {
  using namespace zor::bridge;  // NOLINT(google-build-using-namespace): the program's own names
  return zor::daemon::ServerMain(kProgram, count, arguments, ReadSettings, Run);
}
