#include "zorctl/foreign_json.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <span>

#include "programs/messages/text.h"
#include "zorctl/exit_code.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;

// Beyond this, numbers of JSON are no longer exact; no counter gets there.
constexpr double kMaxNumber = 9007199254740992.0;
// Years that the system's clock, which counts nanoseconds, can show.
constexpr int kFirstYear = 1970;
constexpr int kLastYear = 2261;
// A name on a bus and a pattern are shorter. Tables are as wide as their longest cell.
constexpr size_t kMaxTextBytes = 256;

enum class Kind { kText, kNumber, kFlag, kTexts, kNumbers };

struct Rule {
  const char *name;
  Kind kind;
};

constexpr Rule kServerRules[] = {
    {"name", Kind::kText},           {"pid", Kind::kNumber},          {"uid", Kind::kNumber},
    {"uptime_ms", Kind::kNumber},    {"clients", Kind::kNumber},      {"max_clients", Kind::kNumber},
    {"queue_bytes", Kind::kNumber},  {"user_clients", Kind::kNumber}, {"user_bytes", Kind::kNumber},
    {"memory_bytes", Kind::kNumber}, {"held", Kind::kNumber},         {"in", Kind::kNumber},
    {"out", Kind::kNumber},          {"dropped", Kind::kNumber},      {"in_bytes", Kind::kNumber},
    {"out_bytes", Kind::kNumber}};
constexpr Rule kAccessRules[] = {
    {"mode", Kind::kText}, {"rules", Kind::kNumber}, {"refused", Kind::kNumber}, {"would_be_refused", Kind::kNumber}};
constexpr Rule kClientRules[] = {{"name", Kind::kText},       {"pid", Kind::kNumber},        {"uid", Kind::kNumber},
                                 {"local", Kind::kFlag},      {"board", Kind::kText},        {"since", Kind::kNumber},
                                 {"in", Kind::kNumber},       {"out", Kind::kNumber},        {"dropped", Kind::kNumber},
                                 {"refused", Kind::kNumber},  {"refused_ms", Kind::kNumber}, {"held", Kind::kNumber},
                                 {"in_bytes", Kind::kNumber}, {"out_bytes", Kind::kNumber},  {"events", Kind::kNumbers},
                                 {"patterns", Kind::kTexts}};
constexpr Rule kWaitingRules[] = {
    {"bytes", Kind::kNumber}, {"messages", Kind::kNumber}, {"oldest_ms", Kind::kNumber}, {"at_least", Kind::kFlag}};
constexpr Rule kPendingRules[] = {{"to", Kind::kText},
                                  {"type", Kind::kNumber},
                                  {"sequence", Kind::kNumber},
                                  {"age_ms", Kind::kNumber},
                                  {"latest", Kind::kFlag}};

// An integer of moderate size, however it is written.
std::optional<int64_t> IntegerOf(const ForeignJson &value) {
  if (!value.is_number()) return std::nullopt;
  const auto number = value.get<double>();
  if (!(std::fabs(number) <= kMaxNumber) || number != std::floor(number)) return std::nullopt;
  return static_cast<int64_t>(number);
}

std::optional<Json> Checked(const ForeignJson &value, Kind kind) {
  if (kind == Kind::kText && value.is_string())
    return std::string(messages::CutText(value.get<std::string>(), kMaxTextBytes));
  if (kind == Kind::kFlag && value.is_boolean()) return value.get<bool>();
  if (kind == Kind::kNumber) {
    if (const auto number = IntegerOf(value)) return *number;
  }
  if ((kind != Kind::kTexts && kind != Kind::kNumbers) || !value.is_array()) return std::nullopt;
  Json array = Json::array();
  for (const ForeignJson &each : value) {
    if (auto item = Checked(each, kind == Kind::kTexts ? Kind::kText : Kind::kNumber)) array.push_back(*item);
  }
  return array;
}

Json CheckedObject(const ForeignJson &object, std::span<const Rule> rules) {
  Json result = Json::object();
  for (const Rule &rule : rules) {
    if (auto value = Checked(MemberOf(object, rule.name), rule.kind)) result[rule.name] = *value;
  }
  return result;
}

Json CheckedClient(const ForeignJson &client) {
  Json result = CheckedObject(client, kClientRules);
  result["waiting"] = CheckedObject(MemberOf(client, "waiting"), kWaitingRules);
  Json pending = Json::array();
  for (const ForeignJson &request : MemberOf(client, "pending")) {
    if (request.is_object()) pending.push_back(CheckedObject(request, kPendingRules));
  }
  result["pending"] = pending;
  return result;
}

}  // namespace

const ForeignJson &MemberOf(const ForeignJson &object, const char *name) {
  static const ForeignJson kNone;
  if (!object.is_object()) return kNone;
  const auto member = object.find(name);
  return member == object.end() ? kNone : *member;
}

std::string TextOf(const ForeignJson &object, const char *name) {
  const ForeignJson &member = MemberOf(object, name);
  return member.is_string() ? member.get<std::string>() : std::string();
}

uint64_t CountOf(const ForeignJson &object, const char *name) {
  return static_cast<uint64_t>(std::max<int64_t>(IntegerOf(MemberOf(object, name)).value_or(0), 0));
}

std::string ShortTextOf(const ForeignJson &object, const char *name) {
  return std::string(messages::CutText(TextOf(object, name), kMaxTextBytes));
}

std::string RequestText(const ForeignJson &request) try {
  return request.dump();
} catch (const ForeignJson::type_error &) {
  throw Failure(kExitUsage, "an argument is not UTF-8", "requests to a fleet are JSON");
}

std::vector<std::string> TextsOf(const ForeignJson &object, const char *name) {
  std::vector<std::string> texts;
  const ForeignJson &member = MemberOf(object, name);
  if (!member.is_array()) return texts;
  for (const ForeignJson &each : member) {
    if (each.is_string()) texts.push_back(each.get<std::string>());
  }
  return texts;
}

std::optional<SystemTime> TimeOf(const ForeignJson &object, const char *name) {
  const std::string text = TextOf(object, name);
  std::tm parts = {};
  int length = 0;
  const int count = std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &parts.tm_year, &parts.tm_mon,
                                &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &length);
  if (count != 6 || !text.ends_with('Z') || parts.tm_year < kFirstYear || parts.tm_year > kLastYear)
    return std::nullopt;
  parts.tm_year -= 1900;
  parts.tm_mon -= 1;
  return std::chrono::system_clock::from_time_t(::timegm(&parts));
}

Json CheckedList(const ForeignJson &list) {
  Json result = {{"server", CheckedObject(MemberOf(list, "server"), kServerRules)}, {"clients", Json::array()}};
  result["server"]["access"] = CheckedObject(MemberOf(MemberOf(list, "server"), "access"), kAccessRules);
  const ForeignJson &clients = MemberOf(list, "clients");
  for (const ForeignJson &client : clients.is_array() ? clients : MemberOf(list, "daemons")) {
    if (client.is_object()) result["clients"].push_back(CheckedClient(client));
  }
  return result;
}

}  // namespace zor::ctl
