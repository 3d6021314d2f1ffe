#include "msgsvr/trace_json.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "programs/limits.h"
#include "programs/tcp_listener.h"

namespace zor::msgsvr {
namespace {

bool IsName(const std::string &text) {
  return text.size() < ZOR_MSG_NAME_SIZE && AppName(text).IsGrantable();
}

std::optional<uint64_t> WholeNumber(const cJSON *value, uint64_t least, uint64_t most) {
  if (!cJSON_IsNumber(value)) return std::nullopt;
  const double number = value->valuedouble;
  if (!(number >= static_cast<double>(least) && number <= static_cast<double>(most))) return std::nullopt;
  if (number != std::floor(number)) return std::nullopt;
  return static_cast<uint64_t>(number);
}

bool TakeName(const cJSON *value, NamedTrace &trace) {
  if (!cJSON_IsString(value)) return false;
  trace.name = value->valuestring;
  return IsName(trace.name);
}

bool TakeOutput(const cJSON *value, NamedTrace &trace) {
  if (!cJSON_IsString(value)) return false;
  const std::string text = value->valuestring;
  trace.members.output = text;
  if (text == "stdout" || text == "file") return true;
  // Daemons read the port as a decimal number and reject 0.
  const auto address = daemon::ParseTcpAddress(text);
  return address && address->sin_port != 0 && text.size() < ZOR_TRACE_OUTPUT_TEXT_SIZE &&
         text.find_first_not_of("0123456789.:") == text.npos;
}

bool TakeFileKiB(const cJSON *value, NamedTrace &trace) {
  trace.members.fileKiB = WholeNumber(value, limits::msgsvr::kLeastTraceFileKiB, UINT32_MAX);
  return trace.members.fileKiB.has_value();
}

std::optional<uint32_t> Level(const cJSON *value) {
  if (cJSON_IsString(value)) return ParseTraceLevel(value->valuestring);
  const auto number = WholeNumber(value, 0, UINT32_MAX);
  return number ? std::optional(static_cast<uint32_t>(*number)) : std::nullopt;
}

bool TakeLevels(const cJSON *value, NamedTrace &trace) {
  if (!cJSON_IsObject(value)) return false;
  std::vector<TraceLevel> &levels = trace.members.levels.emplace();
  const cJSON *item = nullptr;
  cJSON_ArrayForEach(item, value) {
    const std::string module = item->string;
    const auto level = Level(item);
    if (!level || !IsName(module) || levels.size() == limits::msgsvr::kTraceLevels) return false;
    const AppName name(module);
    if (std::any_of(levels.begin(), levels.end(), [&](const TraceLevel &l) { return l.module == name; })) return false;
    levels.push_back({name, *level});
  }
  return true;
}

bool TakeSource(const cJSON *, NamedTrace &) {
  return true;
}

constexpr struct {
  std::string_view name;
  bool (*take)(const cJSON *value, NamedTrace &trace);
} kMembers[] = {
    {"name", TakeName},     {"output", TakeOutput}, {"file_kib", TakeFileKiB},
    {"levels", TakeLevels}, {"source", TakeSource},
};

}  // namespace

std::optional<NamedTrace> TraceFromJson(const cJSON *value) {
  NamedTrace trace;
  if (!cJSON_IsObject(value)) return std::nullopt;
  const cJSON *item = nullptr;
  cJSON_ArrayForEach(item, value) {
    const auto *member = std::find_if(std::begin(kMembers), std::end(kMembers),
                                      [&](const auto &known) { return known.name == item->string; });
    if (member == std::end(kMembers) || !member->take(item, trace)) return std::nullopt;
  }
  const TraceMembers &set = trace.members;
  if (trace.name.empty() || (!set.output && !set.fileKiB && !set.levels)) return std::nullopt;
  return trace;
}

daemon::Json TraceToJson(const NamedTrace &trace) {
  daemon::Json object(cJSON_CreateObject());
  cJSON_AddStringToObject(object.get(), "name", trace.name.c_str());
  if (trace.members.output) {
    cJSON_AddStringToObject(object.get(), "output", daemon::CleanText(*trace.members.output).c_str());
  }
  if (trace.members.fileKiB) {
    cJSON_AddNumberToObject(object.get(), "file_kib", static_cast<double>(*trace.members.fileKiB));
  }
  if (!trace.members.levels) return object;
  cJSON *levels = cJSON_AddObjectToObject(object.get(), "levels");
  for (const TraceLevel &level : *trace.members.levels) {
    const std::string module = daemon::CleanText(level.module.text());
    const std::string_view name = TraceLevelName(level.level);
    if (name.empty()) {
      cJSON_AddNumberToObject(levels, module.c_str(), level.level);
    } else {
      cJSON_AddStringToObject(levels, module.c_str(), std::string(name).c_str());
    }
  }
  return object;
}

}  // namespace zor::msgsvr
