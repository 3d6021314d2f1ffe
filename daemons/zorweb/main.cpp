// zorweb: shows the bus on a page for the browser.
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>

#include "programs/messages/message_types.h"
#include "programs/paths.h"
#include "programs/server_main.h"
#include "programs/stop_signal.h"
#include "programs/tls/secret_file.h"
#include "zorweb/page_server.h"
#include "zorweb/secrets.h"
#include "zorweb/settings.h"

namespace zor::web {
namespace {

constexpr daemon::Program kProgram = {
    "zorweb",
    "Shows the message bus on a page for the browser, and its measurements at /metrics.",
    "/etc/zor/zorweb.conf",
    kSettingsHelp,
    "has no effect",
};

constexpr mode_t kUmask = 0027;

// One for each connection.
void RaiseDescriptorLimit(size_t connections) {
  constexpr rlim_t kOwnDescriptors = 64;
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = std::max(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, connections + kOwnDescriptors));
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

std::optional<PageServer::Secrets> ReadSecrets(const WebSettings &settings, daemon::ProblemLog &log) {
  PageServer::Secrets secrets;
  if (settings.login == Login::kToken) {
    const auto token = ReadToken(daemon::FixedPath(settings.tokenFile), log);
    if (!token) return std::nullopt;
    secrets.token = *token;
  }
  if (!settings.usesTls()) return secrets;
  tls::SecretFile certificate, key;
  if (!key.Read("key", daemon::FixedPath(settings.key), log)) return std::nullopt;
  if (!certificate.Read("certificate", daemon::FixedPath(settings.certificate), log)) return std::nullopt;
  secrets.certificate = certificate.text();
  secrets.key = key.text();
  return secrets;
}

int Run(const WebSettings &settings, daemon::ProblemLog &log, bool) {
  ::umask(kUmask);
  const daemon::StopSignal stop;
  RaiseDescriptorLimit(settings.connections);
  auto secrets = ReadSecrets(settings, log);
  if (!secrets) return daemon::kExitSettings;
  daemon::TcpListener listener = daemon::ListenTcp(settings.listen);
  if (!listener.socket.valid()) {
    log.PrintErrno("listen = %s: cannot listen", settings.listen.c_str());
    return daemon::kExitFailure;
  }
  PageServer server(settings, std::move(*secrets), std::move(listener), log);
  return server.Run(stop);
}

}  // namespace
}  // namespace zor::web

int main(int count, char **arguments) {
  using namespace zor::web;  // NOLINT(google-build-using-namespace): the program's own names
  zor::messages::UseInstalledKinds();
  return zor::daemon::ServerMain(kProgram, count, arguments, ReadSettings, Run);
}
