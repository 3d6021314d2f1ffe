#include "zortunnel/settings.h"

#include "programs/board_name.h"
#include "programs/limits.h"
#include "programs/tcp_listener.h"

namespace zor::tunnel {

const char kSettingsHelp[] =
    "  mode =                    gateway: serves boards; board: leads daemons to the gateway\n"
    "  listen =                  ADDRESS:PORT (IPv4); on a board a loopback address; port 0: any\n"
    "  certificate = /etc/zor/tunnel/certificate.pem  its own certificate, then those between it and the authority\n"
    "  key = /etc/zor/tunnel/key.pem  its private key, which others may not read\n"
    "  authority = /etc/zor/tunnel/authority.pem  certificates of those who may sign the other side's\n"
    "  revoked =                 file of the authority's revocation lists; once set it must be up to date\n"
    "  handshake_seconds = 10    time that a handshake may take\n"
    "  board_seconds = 12        time without an answer after which the other side is taken for dead\n"
    "  max_connections = 256     maximum number of connections\n"
    "At the gateway:\n"
    "  boards = /run/zor-boards/socket  where msgsvr listens for this program (its setting of the same name)\n"
    "  max_handshakes = 64       maximum number of unfinished handshakes\n"
    "  board_connections = 64    maximum number of connections with one board's certificate\n"
    "On a board:\n"
    "  gateway =                 ADDRESS:PORT (IPv4) of the gateway\n"
    "  gateway_name = gateway    the name in its certificate\n";

namespace {

void ReadMode(daemon::Settings &settings, TunnelSettings &result) {
  const std::string mode = settings.Text("mode", "");
  result.isGateway = mode == "gateway";
  if (!result.isGateway && mode != "board") settings.AddMistake("mode must be gateway or board");
}

// Whoever reaches a board's listener speaks for that board.
void ReadListen(daemon::Settings &settings, TunnelSettings &result) {
  result.listen = settings.Text("listen", "");
  const auto address = daemon::ParseTcpAddress(result.listen);
  if (!address) {
    settings.AddMistake("listen must be an IPv4 ADDRESS:PORT");
  } else if (!result.isGateway && !daemon::IsLoopback(*address)) {
    settings.AddMistake(
        "listen must be a loopback address, such as 127.0.0.1:5000: a board's own daemons connect there");
  }
}

void ReadGateway(daemon::Settings &settings, TunnelSettings &result) {
  const auto gateway = daemon::ParseTcpAddress(settings.Text("gateway", ""));
  result.gatewayName = settings.Text("gateway_name", "gateway");
  if (result.isGateway) return;
  if (gateway && gateway->sin_port != 0) {
    result.gateway = *gateway;
  } else {
    settings.AddMistake("gateway must be an IPv4 ADDRESS:PORT");
  }
  if (!daemon::IsBoardName(result.gatewayName)) settings.AddMistake("gateway_name: not a name for a board");
}

}  // namespace

TunnelSettings ReadSettings(daemon::Settings &settings) {
  using namespace limits::zortunnel;  // NOLINT(google-build-using-namespace): nine of them
  TunnelSettings result;
  ReadMode(settings, result);
  ReadListen(settings, result);
  ReadGateway(settings, result);
  result.boards = settings.Path("boards", "/run/zor-boards/socket");
  result.certificate = settings.Path("certificate", "/etc/zor/tunnel/certificate.pem");
  result.key = settings.Path("key", "/etc/zor/tunnel/key.pem");
  result.authority = settings.Path("authority", "/etc/zor/tunnel/authority.pem");
  result.revoked = settings.Text("revoked", "");
  if (!result.revoked.empty() && !result.revoked.starts_with('/')) {
    settings.AddMistake("revoked must be an absolute path");
  }
  result.handshakeTime =
      std::chrono::seconds(settings.Number("handshake_seconds", kHandshakeSeconds, 1, kMostHandshakeSeconds));
  result.silence =
      std::chrono::seconds(settings.Number("board_seconds", limits::msgsvr::kBoardSeconds,
                                           limits::msgsvr::kLeastBoardSeconds, limits::msgsvr::kMostBoardSeconds));
  const auto count = [&](const char *key, std::size_t fallback) {
    return static_cast<std::size_t>(settings.Number(key, fallback, 1, kMostConnections));
  };
  result.maxConnections = count("max_connections", kConnections);
  result.maxHandshakes = count("max_handshakes", kHandshakes);
  result.boardConnections = count("board_connections", kBoardConnections);
  return result;
}

}  // namespace zor::tunnel
