// How to reach a fleet's broker: from options, the environment and the user's file, in this order of precedence.
#ifndef ZORCTL_FLEET_ACCESS_H
#define ZORCTL_FLEET_ACCESS_H

#include <cstdint>
#include <string>
#include <string_view>

namespace zor::ctl {

struct FleetAccess {
  bool tls = false;
  std::string host;  // a name or an IP address, without brackets
  uint16_t port = 0;
  std::string user;
  std::string prefix;        // of all topics
  std::string passwordFile;  // empty: no password
  std::string authority;     // paths of PEM files; empty: the system's authorities, no certificate of our own
  std::string certificate;
  std::string key;

  // "HOST:PORT", for users.
  std::string address() const;
};

// mqtt://[USER@]HOST[:1883][/PREFIX] or mqtts://...[:8883]; an IPv6 address is in brackets. Failure (usage) for
// anything else, a password included: other users can read a command line.
FleetAccess ParseFleetUrl(std::string_view url);

// What the command line may give; empty: not given.
struct FleetOptions {
  std::string url;
  std::string authority;
  std::string certificate;
  std::string key;
  std::string passwordFile;
};

// Adds what was not given from ZOR_FLEET, ZOR_FLEET_CA, ZOR_FLEET_CERT, ZOR_FLEET_KEY and ZOR_FLEET_PASSWORD_FILE, and
// what is still missing from the user's fleet.conf. Failure (usage) for mistakes in the file.
FleetOptions CompleteFleetOptions(FleetOptions given);

// Failure (usage) without a URL.
FleetAccess AccessOf(const FleetOptions &options);

}  // namespace zor::ctl

#endif
