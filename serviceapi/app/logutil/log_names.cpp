// The vocabularies of log records: types and levels in two languages, and the processes that own items.
#include <zor/log.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "app/logutil/log_items.h"

namespace {

struct Name {
  const char *text;
  uint32_t value;
};

struct Level {
  uint32_t bit;
  const char *english;
  const char *second;
};

constexpr std::array<Level, 8> kLevels = {{
    {ZOR_LOG_EMERGENCY, "Emergency", "致命"},
    {ZOR_LOG_ALERT, "Alert", "告警"},
    {ZOR_LOG_CRITICAL, "Critical", "危急"},
    {ZOR_LOG_ERROR, "Error", "错误"},
    {ZOR_LOG_WARNING, "Warning", "警告"},
    {ZOR_LOG_NOTICE, "Notice", "提示"},
    {ZOR_LOG_INFO, "Info", "信息"},
    {ZOR_LOG_DEBUG, "Debug", "调试"},
}};

// A search looks at 24 pairs in either language. What follows "None" is empty and has its value, 0, so that nothing
// behind it is ever found.
using TypeTable = std::array<Name, 24>;

constexpr TypeTable kEnglishTypes = {{
    {"Kernel", ZOR_LOG_KERNEL},
    {"User", ZOR_LOG_USER},
    {"System", ZOR_LOG_SYSTEM},
    {"Security", ZOR_LOG_SECURITY},
    {"Daemon", ZOR_LOG_DAEMON},
    {"quorelmessage", ZOR_LOG_QUOREL_MESSAGE},
    {"wifi", ZOR_LOG_WIFI},
    {"alert", ZOR_LOG_ALERT_TYPE},
    {"missedcall", ZOR_LOG_MISSED_CALL},
    {"incall", ZOR_LOG_INCOMING_CALL},
    {"outcall", ZOR_LOG_OUTGOING_CALL},
    {"wan", ZOR_LOG_WAN},
    {"portforwarding", ZOR_LOG_PORT_FORWARDING},
    {"DAD", ZOR_LOG_DAD},
    {"dsl", ZOR_LOG_DSL},
    {"ppp", ZOR_LOG_PPP},
    {"Security", ZOR_LOG_SECURITY_2},
    {"voice", ZOR_LOG_VOICE},
    {"None", ZOR_LOG_NONE},
}};

constexpr TypeTable kSecondTypes = {{
    {"内核", ZOR_LOG_KERNEL},
    {"用户操作", ZOR_LOG_USER},
    {"系统日志", ZOR_LOG_SYSTEM},
    {"安全日志", ZOR_LOG_SECURITY},
    {"Syslogd", ZOR_LOG_DAEMON},
    {"quorelmessage", ZOR_LOG_QUOREL_MESSAGE},
    {"wifi", ZOR_LOG_WIFI},
    {"alert", ZOR_LOG_ALERT_TYPE},
    {"missedcall", ZOR_LOG_MISSED_CALL},
    {"incall", ZOR_LOG_INCOMING_CALL},
    {"outcall", ZOR_LOG_OUTGOING_CALL},
    {"wan", ZOR_LOG_WAN},
    {"portforwarding", ZOR_LOG_PORT_FORWARDING},
    {"dsl", ZOR_LOG_DSL},
    {"ppp", ZOR_LOG_PPP},
    {"安全日志", ZOR_LOG_SECURITY_2},
    {"voice", ZOR_LOG_VOICE},
    {"None", ZOR_LOG_NONE},
}};

constexpr Name kProcesses[] = {
    {"igmp", 64},    {"web", 80},       {"ddns", 144},      {"sntp", 160},  {"pppc", 176},
    {"wlan", 320},   {"usbmount", 336}, {"cwmp", 384},      {"upg", 416},   {"log", 432},
    {"cfm", 480},    {"upnp", 784},     {"qos", 1232},      {"nat", 1264},  {"cli", 2112},
    {"bhal", 2128},  {"wan", 2288},     {"firewall", 2752}, {"xdsl", 3024}, {"powermanagement", 3040},
    {"voice", 3408}, {"http", 3409},
};
constexpr unsigned kProcessShift = 20;

const char *FindName(const auto &names, uint32_t value) {
  const auto found = std::ranges::find(names, value, &Name::value);
  return found == std::end(names) ? nullptr : found->text;
}

}  // namespace

const char *ZOR_UTIL_LOG_GetTypeString(uint32_t typeLevel, uint32_t language) {
  return FindName(language == ZOR_LOG_SECOND_LANGUAGE ? kSecondTypes : kEnglishTypes, typeLevel >> ZOR_LOG_TYPE_SHIFT);
}

const char *ZOR_UTIL_LOG_GetLevelString(uint32_t typeLevel, uint32_t language) {
  const auto level = std::ranges::find(kLevels, typeLevel & ZOR_LOG_LEVEL_MASK, &Level::bit);
  if (level == kLevels.end()) return nullptr;
  return language == ZOR_LOG_SECOND_LANGUAGE ? level->second : level->english;
}

uint32_t ZOR_UTIL_LOG_GetAllLogLevel(const char **names, uint32_t size) {
  const uint32_t used = zor::LogLevelsInUse();
  const std::size_t count = names == nullptr ? 0 : std::min<std::size_t>(size, kLevels.size());
  for (std::size_t i = 0; i < count; ++i) names[i] = (used & kLevels[i].bit) != 0 ? kLevels[i].english : nullptr;
  return used;
}

uint32_t ZOR_UTIL_LOG_GetHigherLogLevels(const char *levelName, uint32_t *mask) {
  if (levelName == nullptr || mask == nullptr) return ZOR_LOG_FAILURE;
  const auto level = std::ranges::find(kLevels, std::string_view(levelName), &Level::english);
  const uint32_t used = zor::LogLevelsInUse();
  if (level == kLevels.end() || (used & level->bit) == 0) return ZOR_LOG_FAILURE;
  *mask = (level->bit * 2 - 1) & used;
  return 0;
}

const char *logGetProcName(uint32_t index) {
  const char *name = FindName(kProcesses, index >> kProcessShift);
  return name == nullptr ? "" : name;
}
