#include "msgsvr/settings.h"

#include <zor/kiva_wire.h>
#include <zor/trace.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "programs/limits.h"
#include "programs/recorder/saved.h"
#include "programs/tcp_listener.h"

namespace zor::msgsvr {

const char kSettingsHelp[] =
    "  queue_bytes = 1048576     unread output of a client after which messages to it are refused\n"
    "  slow_reader = refuse      or cut_off: disconnect a client whose unread output is that much\n"
    "  register_seconds = 10     time that a connection has to get a name\n"
    "  stop_seconds = 5          time to deliver what is queued when the server is stopped\n"
    "  max_clients = 256         maximum number of connections\n"
    "  user_clients = 224        maximum number of connections of one user\n"
    "  user_bytes = 33554432     memory that one user's clients may take up\n"
    "  memory_bytes = 50331648   memory that all clients may take up; at least user_bytes\n"
    "  boards =                  path of the socket at which zortunnel hands over daemons on other boards\n"
    "  tcp =                     ADDRESS:PORT (IPv4) to listen on for other boards without any protection; port 0: "
    "any\n"
    "  tcp_unprotected = no      yes: also on an address that is not a loopback address\n"
    "  board_seconds = 12        time without an answer after which another board is taken for dead\n"
    "  kept_file = /var/lib/zor/msgsvr.trace  stores the trace overrides that operators' tools set\n"
    "  recorder_frames = 4096    latest messages that are kept for zorctl recorder and after a crash; 0: none\n"
    "  recorder_file = /var/lib/zor/msgsvr.recorder  with .1 to .4 behind it: the messages before the latest crashes\n"
    "  deadlock_seconds = 5      time after which daemons that wait for each other in a circle are logged; 0: never\n"
    "  storm_rate = 1000         messages of one type a second that two daemons send each other ...\n"
    "  storm_seconds = 10        ... for that time, after which they are logged; storm_rate 0: never\n"
    "  route.TYPE = NAME         the daemon that gets requests of that type without a destination; TYPE is a number\n"
    "                            or a range such as 0x5025-0x502B; without NAME such requests are refused. By\n"
    "                            default configuration and device list requests go to cms, login control to lctrl\n"
    "Sent to a daemon when it registers; NAME is a daemon's name, or * for all others:\n"
    "  report.NAME = 0           seconds between its reports, 0 for none\n"
    "  trace_output.NAME =       stdout, file, or ADDRESS:PORT\n"
    "  trace_file_kib.NAME = 1024  size limit of its trace file; daemons ignore smaller values\n"
    "  trace.NAME =              MODULE=LEVEL ..., where the module \"all\" stands for the rest; levels: none fatal\n"
    "                            error warning info debug, or a number\n";

namespace {

struct DefaultRoute {
  uint32_t first;
  uint32_t last;
  const char *daemon;
};

// Made from messages/types.d/zor.json, except that cms gets all types between those of the device list.
constexpr auto kDefaultRoutes = std::to_array<DefaultRoute>({
#include "msgsvr/default_routes.inc"
    {ZOR_MSG_KIVA_ADD, ZOR_MSG_KIVA_REMOVE_SYNC, ZOR_KIVA_DAEMON_NAME},
});

struct LevelName {
  std::string_view name;
  uint32_t level;
};

constexpr auto kLevelNames = std::to_array<LevelName>({
    {"none", ZOR_TRACE_NONE},
    {"fatal", ZOR_TRACE_FATAL},
    {"error", ZOR_TRACE_ERROR},
    {"warning", ZOR_TRACE_WARNING},
    {"info", ZOR_TRACE_INFO},
    {"debug", ZOR_TRACE_DEBUG},
    {"all", ZOR_TRACE_DEBUG},
});

bool ParseWord(std::string_view text, uint32_t *word, uint64_t most = UINT32_MAX) {
  uint64_t number;
  if (!daemon::ParseNumber(text, &number) || number > most) return false;
  *word = static_cast<uint32_t>(number);
  return true;
}

bool ParseRange(std::string_view text, Route *route) {
  const size_t dash = text.find('-');
  const std::string_view last = dash == text.npos ? text : text.substr(dash + 1);
  return ParseWord(text.substr(0, dash), &route->first, ZOR_MSG_TYPE_MASK) &&
         ParseWord(last, &route->last, ZOR_MSG_TYPE_MASK) && route->first <= route->last;
}

bool FitsName(std::string_view text) {
  return text == AppName(text).text();
}

std::optional<std::vector<TraceLevel>> ParseLevels(std::string_view text) {
  std::vector<TraceLevel> levels;
  for (size_t start; (start = text.find_first_not_of(" \t")) != text.npos;) {
    text.remove_prefix(start);
    const std::string_view item = text.substr(0, text.find_first_of(" \t"));
    text.remove_prefix(item.size());
    const size_t equals = item.find('=');
    if (equals == item.npos || equals == 0 || !FitsName(item.substr(0, equals))) return std::nullopt;
    const auto level = ParseTraceLevel(item.substr(equals + 1));
    if (!level || levels.size() == limits::msgsvr::kTraceLevels) return std::nullopt;
    levels.push_back({AppName(item.substr(0, equals)), *level});
  }
  return levels;
}

void ReadRoutes(daemon::Settings &settings, BusSettings &result) {
  for (const auto &[range, daemon] : settings.WithPrefix("route.")) {
    Route route{};
    if (!ParseRange(range, &route) || !FitsName(daemon)) settings.AddMistake("route." + range + ": invalid route");
    route.daemon = AppName(daemon);
    result.routes.push_back(route);
  }
  for (const DefaultRoute &route : kDefaultRoutes) {
    result.routes.push_back({route.first, route.last, AppName(route.daemon)});
  }
}

void ReadWatch(daemon::Settings &settings, BusSettings &result) {
  const auto number = [&](const char *key, uint32_t fallback, uint32_t least, uint32_t most) {
    return static_cast<uint32_t>(settings.Number(key, fallback, least, most));
  };
  using namespace limits::msgsvr;  // NOLINT(google-build-using-namespace): four of them
  result.deadlockSeconds = number("deadlock_seconds", kDeadlockSeconds, 0, kMostWatchSeconds);
  result.stormRate = number("storm_rate", kStormRate, 0, kMostStormRate);
  result.stormSeconds = number("storm_seconds", kStormSeconds, 1, kMostWatchSeconds);
}

void ReadShares(daemon::Settings &settings, BusSettings &result) {
  using namespace limits::msgsvr;  // NOLINT(google-build-using-namespace): ten of them
  const auto number = [&](const char *key, size_t fallback, size_t least, size_t most) {
    return static_cast<size_t>(settings.Number(key, fallback, least, most));
  };
  result.maxClients = number("max_clients", kClients, 1, kMostClients);
  result.userClients = number("user_clients", kUserClients, 1, kMostClients);
  result.userBytes = number("user_bytes", kUserBytes, kLeastShareBytes, kMostShareBytes);
  result.memoryBytes =
      number("memory_bytes", std::max(kMemoryBytes, result.userBytes), kLeastShareBytes, kMostShareBytes);
  if (result.memoryBytes < result.userBytes) settings.AddMistake("memory_bytes must be at least user_bytes");
}

// Without certificates and encryption whoever is in that network is trusted with the bus.
void ReadBoards(daemon::Settings &settings, BusSettings &result) {
  result.boards = settings.Text("boards", "");
  if (!result.boards.empty() && !result.boards.starts_with('/')) {
    settings.AddMistake("boards must be an absolute path");
  }
  result.tcp = settings.Text("tcp", "");
  const bool unprotected = settings.Flag("tcp_unprotected", false);
  const auto address = daemon::ParseTcpAddress(result.tcp);
  if (!address || unprotected || daemon::IsLoopback(*address)) return;
  settings.AddMistake("tcp = " + result.tcp +
                      ": not a loopback address, and nothing protects what travels there: let zortunnel listen there "
                      "and set boards, or set tcp_unprotected = yes");
}

// Reads the settings of one kind, one per daemon. `parse` returns nothing for an invalid value.
template <typename Value, typename Parse>
void ReadPerDaemon(daemon::Settings &settings, const std::string &prefix, PerDaemon<Value> &result, Parse parse) {
  for (const auto &[daemon, text] : settings.WithPrefix(prefix)) {
    const std::optional<Value> value = parse(text);
    if (value && !daemon.empty() && FitsName(daemon)) {
      result.Set(daemon, *value);
    } else {
      settings.AddMistake(std::string(prefix).append(daemon).append(": invalid value: ").append(text));
    }
  }
}

std::optional<uint32_t> ParseSeconds(const std::string &text) {
  uint32_t seconds;
  return ParseWord(text, &seconds) ? std::optional(seconds) : std::nullopt;
}

std::optional<uint64_t> ParseSize(const std::string &text) {
  uint64_t size;
  return daemon::ParseNumber(text, &size) ? std::optional(size) : std::nullopt;
}

std::optional<std::string> ParseOutput(const std::string &text) {
  return text.size() < ZOR_TRACE_OUTPUT_TEXT_SIZE ? std::optional(text) : std::nullopt;
}

}  // namespace

std::optional<uint32_t> ParseTraceLevel(std::string_view text) {
  const auto named =
      std::find_if(kLevelNames.begin(), kLevelNames.end(), [&](const LevelName &known) { return known.name == text; });
  if (named != kLevelNames.end()) return named->level;
  uint32_t level;
  return ParseWord(text, &level) ? std::optional(level) : std::nullopt;
}

std::string_view TraceLevelName(uint32_t level) {
  const auto named = std::find_if(kLevelNames.begin(), kLevelNames.end(),
                                  [&](const LevelName &known) { return known.level == level; });
  return named == kLevelNames.end() ? std::string_view() : named->name;
}

AppName BusSettings::RouteOf(uint32_t type) const {
  const auto route = std::find_if(routes.begin(), routes.end(), [&](const Route &candidate) {
    return type >= candidate.first && type <= candidate.last;
  });
  return route == routes.end() ? AppName() : route->daemon;
}

BusSettings ReadSettings(daemon::Settings &settings) {
  BusSettings result{};
  result.queueBytes = static_cast<size_t>(settings.Number(
      "queue_bytes", limits::msgsvr::kQueueBytes, limits::msgsvr::kLeastQueueBytes, limits::msgsvr::kMostQueueBytes));
  const std::string slow = settings.Text("slow_reader", "refuse");
  if (slow != "refuse" && slow != "cut_off") settings.AddMistake("slow_reader: neither refuse nor cut_off: " + slow);
  result.cutOffSlowReaders = slow == "cut_off";
  ReadShares(settings, result);
  result.registerTime = std::chrono::seconds(
      settings.Number("register_seconds", limits::msgsvr::kRegisterSeconds, 1, limits::msgsvr::kMostRegisterSeconds));
  result.stopTime = std::chrono::seconds(
      settings.Number("stop_seconds", limits::msgsvr::kStopSeconds, 0, limits::msgsvr::kMostStopSeconds));
  result.boardSilence =
      std::chrono::seconds(settings.Number("board_seconds", limits::msgsvr::kBoardSeconds,
                                           limits::msgsvr::kLeastBoardSeconds, limits::msgsvr::kMostBoardSeconds));
  ReadBoards(settings, result);
  result.traceOverridesFile = settings.Path("kept_file", "/var/lib/zor/msgsvr.trace");
  result.recorderFrames = static_cast<uint32_t>(
      settings.Number("recorder_frames", limits::msgsvr::kRecorderFrames, 0, limits::msgsvr::kMostRecorderFrames));
  result.recorderFile = settings.Path("recorder_file", recorder::kSavedPath);
  ReadWatch(settings, result);
  ReadRoutes(settings, result);
  ReadPerDaemon(settings, "report.", result.reportSeconds, ParseSeconds);
  ReadPerDaemon(settings, "trace_output.", result.traceOutput, ParseOutput);
  ReadPerDaemon(settings, "trace_file_kib.", result.traceFileKiB, ParseSize);
  ReadPerDaemon(settings, "trace.", result.traceLevels, ParseLevels);
  return result;
}

}  // namespace zor::msgsvr
