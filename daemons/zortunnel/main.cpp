// zortunnel: leads daemons on other boards to the message server, over TLS with certificates on both sides.
#include <sys/resource.h>

#include "programs/limits.h"
#include "programs/server_main.h"
#include "programs/stop_signal.h"
#include "programs/tcp_listener.h"
#include "zortunnel/credentials.h"
#include "zortunnel/settings.h"
#include "zortunnel/tunnel.h"

namespace zor::tunnel {
namespace {

constexpr daemon::Program kProgram = {
    "zortunnel",
    "Leads daemons on other boards to the message server, over TLS with certificates on both sides.",
    "/etc/zor/zortunnel.conf",
    kSettingsHelp,
    "log boards that connect and disconnect",
};

// Two for each connection.
void RaiseDescriptorLimit(size_t connections) {
  constexpr rlim_t kOwnDescriptors = 32;
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = std::max(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, 2 * connections + kOwnDescriptors));
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

int Run(const TunnelSettings &settings, daemon::ProblemLog &log, bool verbose) {
  daemon::ServerSignals signals;
  RaiseDescriptorLimit(settings.maxConnections);
  tls::ContextPtr credentials = LoadCredentials(settings, log);
  if (credentials == nullptr) return daemon::kExitSettings;
  daemon::TcpListener listener = daemon::ListenTcp(settings.listen);
  if (!listener.socket.valid()) {
    log.PrintErrno("listen = %s: cannot listen", settings.listen.c_str());
    return daemon::kExitFailure;
  }
  const std::string address = listener.address;
  Tunnel tunnel(settings, std::move(credentials), std::move(listener.socket), signals, log, verbose);
  if (!signals.valid() || !tunnel.Watch()) {
    log.PrintErrno("cannot start");
    return daemon::kExitFailure;
  }
  daemon::SayListening(kProgram, address.c_str());
  tunnel.Run();
  return daemon::kExitOk;
}

}  // namespace
}  // namespace zor::tunnel

int main(int count, char **arguments) {
  using namespace zor::tunnel;  // NOLINT(google-build-using-namespace): the program's own names
  return zor::daemon::ServerMain(kProgram, count, arguments, ReadSettings, Run);
}
