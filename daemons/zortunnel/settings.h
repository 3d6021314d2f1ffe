// The tunnel's settings.
#ifndef ZORTUNNEL_SETTINGS_H
#define ZORTUNNEL_SETTINGS_H

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <string>

#include "programs/settings.h"

namespace zor::tunnel {

struct TunnelSettings {
  bool isGateway = false;
  std::string listen;  // ADDRESS:PORT
  std::string boards;  // at the gateway: fixed path of the message server's socket for boards
  sockaddr_in gateway = {};
  std::string gatewayName;  // in its certificate
  std::string certificate;  // fixed paths
  std::string key;
  std::string authority;
  std::string revoked;  // empty: none are
  std::chrono::seconds handshakeTime{};
  std::chrono::seconds silence{};
  std::size_t maxHandshakes = 0;
  std::size_t maxConnections = 0;
  std::size_t boardConnections = 0;  // of one certificate
};

// The part of --help that describes them.
extern const char kSettingsHelp[];

// Mistakes stay in the settings, for Settings::CheckAndReport.
TunnelSettings ReadSettings(daemon::Settings &settings);

}  // namespace zor::tunnel

#endif
