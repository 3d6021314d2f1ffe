// The server's settings: read from its file, with defaults for the rest.
#ifndef MSGSVR_SETTINGS_H
#define MSGSVR_SETTINGS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "msgsvr/names.h"
#include "programs/settings.h"

namespace zor::msgsvr {

// The daemon that gets requests of these types without a destination.
struct Route {
  uint32_t first;
  uint32_t last;
  AppName daemon;  // empty: no daemon
};

// A setting with a value for each daemon; the name "*" stands for all others.
template <typename Value>
class PerDaemon {
 public:
  PerDaemon() = default;
  explicit PerDaemon(Value fallback) : fallback_(std::move(fallback)) {}

  void Set(const std::string &daemon, Value value) { values_[daemon] = std::move(value); }
  // The value set for the daemon; null if there is none.
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

// A level's number; nothing if the text is neither the name of a level nor a number.
std::optional<uint32_t> ParseTraceLevel(std::string_view text);
// A level's name; empty if it has none.
std::string_view TraceLevelName(uint32_t level);

struct BusSettings {
  size_t queueBytes;
  bool cutOffSlowReaders;
  size_t maxClients;
  size_t userClients;  // of one user
  size_t userBytes;    // that one user's clients take up
  size_t memoryBytes;  // that all take up
  std::chrono::seconds registerTime;
  std::chrono::seconds stopTime;
  std::chrono::seconds boardSilence;
  std::string tcp;     // ADDRESS:PORT, or empty
  std::string boards;  // fixed path of the tunnel's socket, or empty
  std::string traceOverridesFile;
  uint32_t recorderFrames;   // 0: none are recorded
  std::string recorderFile;  // where those before a crash are saved
  uint32_t deadlockSeconds;  // 0: not looked for
  uint32_t stormRate;        // messages a second each way; 0: not looked for
  uint32_t stormSeconds;
  std::vector<Route> routes;
  PerDaemon<uint32_t> reportSeconds;
  PerDaemon<std::string> traceOutput;
  PerDaemon<uint64_t> traceFileKiB{1024};
  PerDaemon<std::vector<TraceLevel>> traceLevels;

  // The daemon that the type is routed to; the empty name if there is none.
  AppName RouteOf(uint32_t type) const;
};

// The part of --help that describes them.
extern const char kSettingsHelp[];

// Mistakes stay in the settings, for Settings::CheckAndReport.
BusSettings ReadSettings(daemon::Settings &settings);

}  // namespace zor::msgsvr

#endif
