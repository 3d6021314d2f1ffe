// The bridge's settings.
#ifndef ZORBRIDGE_SETTINGS_H
#define ZORBRIDGE_SETTINGS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "programs/settings.h"
#include "zorbridge/broker_address.h"

namespace zor::bridge {

// What becomes of records while they cannot be sent.
enum class Keeping {
  kOff,     // they are not sent at all
  kDrop,    // they are lost
  kLatest,  // the latest of each topic is sent later
  kKeep,    // they wait in the queue
};

struct BridgeSettings {
  std::vector<BrokerAddress> brokers;  // in order of preference
  std::string gateway;                 // empty: the name in the certificate
  std::string prefix;
  std::string certificate;  // fixed paths
  std::string key;
  std::string authority;
  std::string revoked;  // empty: none are
  std::string user;
  std::string passwordFile;

  std::string queueFile;
  std::uint64_t queueBytes = 0;
  std::uint64_t groupBytes = 0;
  std::chrono::milliseconds groupTime{};
  std::uint64_t dailyBytes = 0;

  std::uint16_t keepAliveSeconds = 0;
  std::chrono::milliseconds firstPause{};
  std::chrono::milliseconds mostPause{};
  std::uint32_t inFlight = 0;
  std::chrono::milliseconds statusTime{};

  std::map<std::uint32_t, Keeping> events;  // by their types
  Keeping otherEvents = Keeping::kKeep;
  Keeping log = Keeping::kKeep;
  std::uint32_t logLevels = 0;  // bits, as are the types
  std::uint32_t logTypes = 0;
  std::string logDirectory;  // where the log daemon may write results

  // What may be requested from outside, by the daemon.
  struct Allowed {
    bool everything = false;
    std::set<std::uint32_t> types;
  };
  std::map<std::string, Allowed, std::less<>> calls;
  std::set<std::string, std::less<>> ownCalls;  // of the bridge itself
  std::uint32_t callsAtOnce = 0;
  std::uint32_t callsPerSecond = 0;

  bool usesTls() const;
};

// The part of --help that describes them.
extern const char kSettingsHelp[];

// Whether it can be a gateway's name, which is a level of topics.
bool IsGatewayName(std::string_view text);

// Mistakes stay in the settings, for Settings::CheckAndReport.
BridgeSettings ReadSettings(daemon::Settings &settings);

}  // namespace zor::bridge

#endif
