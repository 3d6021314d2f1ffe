#include "zorbridge/settings.h"

#include <zor/msg_wire.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <type_traits>

#include "programs/limits.h"
#include "programs/messages/event.h"
#include "programs/messages/invalid.h"
#include "programs/messages/log_names.h"
#include "programs/messages/message_types.h"

namespace zor::bridge {

const char kSettingsHelp[] =
    "  broker =                  URL URL ...: mqtts://HOST:PORT or mqtt://HOST:PORT, in order of preference\n"
    "  gateway =                 this gateway's name; none: the name in its certificate\n"
    "  prefix = zor              what the topics begin with\n"
    "  certificate = /etc/zor/bridge/certificate.pem  its own certificate, then those between it and the authority\n"
    "  key = /etc/zor/bridge/key.pem  its private key, which others may not read\n"
    "  authority = /etc/zor/bridge/authority.pem  certificates of those who may sign the brokers'\n"
    "  revoked =                 file of the authority's revocation lists; once set it must be up to date\n"
    "  user =                    user name at the brokers\n"
    "  password_file =           file that holds the password, which others may not read\n"
    "  keep_alive_seconds = 90   silence after which broker and bridge take each other for dead\n"
    "  retry_first_seconds = 10  longest pause before the first attempt to reconnect\n"
    "  retry_most_seconds = 300  longest pause between attempts\n"
    "  in_flight = 64            maximum number of records sent and not acknowledged\n"
    "  queue_file = /var/lib/zor-bridge/queue.db  the SQLite file for records that wait for the broker\n"
    "  queue_bytes = 33554432    maximum bytes of records that wait; newer ones are given up\n"
    "  group_seconds = 5         maximum time before a waiting record is written to the file\n"
    "  group_bytes = 262144      maximum bytes of waiting records that are not in the file\n"
    "  daily_bytes = 268435456   maximum bytes written to the file in a day\n"
    "  status_seconds = 60       interval of the status\n"
    "  event.MODULE = keep       keep, latest, drop or off: events of that module (or type); event.*: all others\n"
    "  log = keep                keep, drop or off: copies of log records\n"
    "  log_level = notice        only records of this level or more severe ones\n"
    "  log_types =               TYPE TYPE ...: only records of these types; none: all\n"
    "  log_directory = /var/syslog  where the log daemon writes lines for requests (its setting query_directory)\n"
    "  call.DAEMON =             TYPE TYPE ...: requests from outside that are allowed; *: all\n"
    "  calls = 16                maximum number of requests from outside at one time\n"
    "  calls_per_second = 20     maximum number of them in a second\n";

namespace {

constexpr char kOwnName[] = "bridge";

std::vector<std::string> Words(std::string_view text) {
  constexpr std::string_view kSpace = " \t";
  std::vector<std::string> words;
  for (;;) {
    text.remove_prefix(std::min(text.find_first_not_of(kSpace), text.size()));
    if (text.empty()) return words;
    const std::size_t end = std::min(text.find_first_of(kSpace), text.size());
    words.emplace_back(text.substr(0, end));
    text.remove_prefix(end);
  }
}

std::optional<Keeping> KeepingOf(std::string_view text) {
  constexpr std::pair<std::string_view, Keeping> kWords[] = {
      {"off", Keeping::kOff}, {"drop", Keeping::kDrop}, {"latest", Keeping::kLatest}, {"keep", Keeping::kKeep}};
  const auto *found = std::ranges::find(kWords, text, &std::pair<std::string_view, Keeping>::first);
  return found == std::end(kWords) ? std::nullopt : std::optional(found->second);
}

// What the function makes of a value; nothing, with the mistake, for one that it does not take.
template <class Value>
std::optional<std::uint32_t> Parsed(std::uint32_t (*parse)(Value), const std::remove_cvref_t<Value> &value,
                                    const std::string &key, daemon::Settings &settings) {
  try {
    return parse(value);
  } catch (const messages::Invalid &problem) {
    settings.AddMistake(key + ": " + problem.what() + "; " + problem.advice);
    return std::nullopt;
  }
}

void ReadEvents(daemon::Settings &settings, BridgeSettings &result) {
  for (const auto &[module, word] : settings.WithPrefix("event.")) {
    const std::string key = "event." + module;
    const auto keeping = KeepingOf(word);
    if (!keeping) {
      settings.AddMistake(key + " must be keep, latest, drop or off");
    } else if (module == "*") {
      result.otherEvents = *keeping;
    } else if (const auto type = Parsed(messages::EventTypeOf, module, key, settings)) {
      result.events[*type] = *keeping;
    }
  }
}

void ReadLog(daemon::Settings &settings, BridgeSettings &result) {
  const auto keeping = KeepingOf(settings.Text("log", "keep"));
  if (!keeping || *keeping == Keeping::kLatest) settings.AddMistake("log must be keep, drop or off");
  result.log = keeping.value_or(Keeping::kOff);
  result.logDirectory = settings.Path("log_directory", "/var/syslog");
  result.logLevels =
      Parsed(messages::LogLevels, settings.Text("log_level", "notice"), "log_level", settings).value_or(0);
  result.logTypes =
      Parsed(messages::LogTypes, Words(settings.Text("log_types", "")), "log_types", settings).value_or(0);
}

void ReadOwnCalls(daemon::Settings &settings, const std::vector<std::string> &names, BridgeSettings &result) {
  for (const std::string &name : names) {
    const bool isKnown = name == "status" || name == "log" || name == "trace";
    if (!isKnown) settings.AddMistake("call.bridge: not status, log or trace: " + name);
    result.ownCalls.insert(name);
  }
}

void ReadCalls(daemon::Settings &settings, BridgeSettings &result) {
  for (const auto &[name, text] : settings.WithPrefix("call.")) {
    const std::vector<std::string> words = Words(text);
    if (name == kOwnName) {
      ReadOwnCalls(settings, words, result);
      continue;
    }
    if (name.empty() || name.size() >= ZOR_MSG_NAME_SIZE) {
      settings.AddMistake("call." + name + ": not the name of a daemon");
    }
    BridgeSettings::Allowed &allowed = result.calls[name];
    for (const std::string &word : words) {
      if (word == "*") {
        allowed.everything = true;
      } else if (const auto type = Parsed(messages::ParseType, word, "call." + name, settings)) {
        allowed.types.insert(*type);
      }
    }
  }
}

bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

void ReadNames(daemon::Settings &settings, BridgeSettings &result) {
  result.gateway = settings.Text("gateway", "");
  if (!IsGatewayName(result.gateway) && !result.gateway.empty()) {
    settings.AddMistake("gateway must have letters, digits, '-', '_' and '.' only, at most 63");
  }
  if (result.gateway.empty() && !result.usesTls()) {
    settings.AddMistake("gateway must be set, since without TLS there is no certificate that names it");
  }
  result.prefix = settings.Text("prefix", "zor");
  // Levels that cannot be taken for wildcards, none of them empty.
  const bool isTopic = std::ranges::all_of(result.prefix, [](char c) { return IsNameCharacter(c) || c == '/'; });
  const std::string slashed = '/' + result.prefix + '/';
  if (!isTopic || slashed.find("//") != slashed.npos) settings.AddMistake("prefix must be a topic, such as zor");
}

void ReadBrokers(daemon::Settings &settings, BridgeSettings &result) {
  for (const std::string &url : Words(settings.Text("broker", ""))) {
    std::string problem;
    if (const auto address = BrokerAddress::Parse(url, &problem)) {
      result.brokers.push_back(*address);
    } else {
      settings.AddMistake(std::string("broker: ").append(url).append(": ").append(problem));
    }
  }
  if (result.brokers.empty()) settings.AddMistake("broker must be set");
}

void ReadCredentials(daemon::Settings &settings, BridgeSettings &result) {
  const auto optional = [&](const char *key) {
    std::string path = settings.Text(key, "");
    if (!path.empty() && !path.starts_with('/')) settings.AddMistake(std::string(key) + " must be an absolute path");
    return path;
  };
  result.certificate = settings.Path("certificate", "/etc/zor/bridge/certificate.pem");
  result.key = settings.Path("key", "/etc/zor/bridge/key.pem");
  result.authority = settings.Path("authority", "/etc/zor/bridge/authority.pem");
  result.revoked = optional("revoked");
  result.user = settings.Text("user", "");
  result.passwordFile = optional("password_file");
}

void ReadLine(daemon::Settings &settings, BridgeSettings &result) {
  using namespace limits::zorbridge;  // NOLINT(google-build-using-namespace): most of them
  result.keepAliveSeconds = static_cast<std::uint16_t>(
      settings.Number("keep_alive_seconds", kKeepAliveSeconds, kLeastKeepAliveSeconds, kMostKeepAliveSeconds));
  result.firstPause =
      std::chrono::seconds(settings.Number("retry_first_seconds", kFirstPauseSeconds, 1, kLongestPauseSeconds));
  result.mostPause =
      std::chrono::seconds(settings.Number("retry_most_seconds", kMostPauseSeconds, 1, kLongestPauseSeconds));
  if (result.mostPause < result.firstPause) settings.AddMistake("retry_most_seconds is below retry_first_seconds");
  result.inFlight = static_cast<std::uint32_t>(settings.Number("in_flight", kInFlight, 1, kMostInFlight));
}

void ReadQueue(daemon::Settings &settings, BridgeSettings &result) {
  using namespace limits::zorbridge;  // NOLINT(google-build-using-namespace): most of them
  result.queueFile = settings.Path("queue_file", "/var/lib/zor-bridge/queue.db");
  result.queueBytes = settings.Number("queue_bytes", kQueueBytes, kLeastQueueBytes, kMostQueueBytes);
  result.groupBytes = settings.Number("group_bytes", kGroupBytes, kLeastGroupBytes, kMostGroupBytes);
  result.groupTime = std::chrono::seconds(settings.Number("group_seconds", kGroupSeconds, 1, kMostGroupSeconds));
  result.dailyBytes = settings.Number("daily_bytes", kDailyBytes, kLeastDailyBytes, kMostQueueBytes);
}

}  // namespace

bool IsGatewayName(std::string_view text) {
  return !text.empty() && text.size() <= 63 && std::ranges::all_of(text, IsNameCharacter);
}

bool BridgeSettings::usesTls() const {
  return std::ranges::any_of(brokers, &BrokerAddress::tls);
}

BridgeSettings ReadSettings(daemon::Settings &settings) {
  using namespace limits::zorbridge;  // NOLINT(google-build-using-namespace): most of them
  BridgeSettings result;
  ReadBrokers(settings, result);
  ReadNames(settings, result);
  ReadCredentials(settings, result);
  ReadLine(settings, result);
  ReadQueue(settings, result);
  ReadEvents(settings, result);
  ReadLog(settings, result);
  ReadCalls(settings, result);
  const auto number = [&](const char *key, std::uint32_t fallback, std::uint32_t most) {
    return static_cast<std::uint32_t>(settings.Number(key, fallback, 1, most));
  };
  result.statusTime = std::chrono::seconds(number("status_seconds", kStatusSeconds, kMostStatusSeconds));
  result.callsAtOnce = number("calls", kCalls, kMostCalls);
  result.callsPerSecond = number("calls_per_second", kCallsPerSecond, kMostCallsPerSecond);
  return result;
}

}  // namespace zor::bridge
