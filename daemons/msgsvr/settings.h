// The server's settings, as read from its file and completed with defaults.
#ifndef MSGSVR_SETTINGS_H
#define MSGSVR_SETTINGS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/settings.h"
#include "msgsvr/names.h"

namespace zor::msgsvr {

// Which daemon gets the requests of these types that name no destination.
struct Route {
  uint32_t first;
  uint32_t last;
  AppName daemon;  // empty: nobody
};

// A setting that each daemon may have on its own and "*" gives to all others.
template <typename Value>
class PerDaemon {
 public:
  PerDaemon() = default;
  explicit PerDaemon(Value fallback) : fallback_(std::move(fallback)) {}

  void Set(const std::string &daemon, Value value) { values_[daemon] = std::move(value); }
  // What has been set for the daemon; null when nothing has.
  const Value *Find(const AppName &daemon) const {
    auto found = values_.find(std::string(daemon.text()));
    if (found == values_.end()) found = values_.find("*");
    return found == values_.end() ? nullptr : &found->second;
  }
  Value Get(const AppName &daemon) const {
    const Value *value = Find(daemon);
    return value == nullptr ? fallback_ : *value;
  }
  bool empty() const { return values_.empty(); }

 private:
  std::map<std::string, Value> values_;
  Value fallback_{};
};

struct TraceLevel {
  AppName module;
  uint32_t level;
};

// A level's number; nothing when the text is neither the name of one nor a number.
std::optional<uint32_t> ParseTraceLevel(std::string_view text);
// A level's name; empty when it has none.
std::string_view TraceLevelName(uint32_t level);

struct BusSettings {
  size_t queueBytes;
  size_t maxClients;
  std::string tcp;  // ADDRESS:PORT, or empty
  std::string keptFile;
  std::vector<Route> routes;
  PerDaemon<uint32_t> reportSeconds;
  PerDaemon<std::string> traceOutput;
  PerDaemon<uint64_t> traceFileKiB{1024};
  PerDaemon<std::vector<TraceLevel>> traceLevels;

  // The daemon that the type is routed to; the empty name when there is none.
  AppName RouteOf(uint32_t type) const;
};

// What --help says about them.
extern const char kSettingsHelp[];

// Mistakes are left in the settings, for Settings::CheckAndReport.
BusSettings ReadSettings(daemon::Settings &settings);

}  // namespace zor::msgsvr

#endif
