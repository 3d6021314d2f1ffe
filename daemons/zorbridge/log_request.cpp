#include "zorbridge/log_request.h"

#include <zor/log_wire.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <vector>

#include "programs/bus_request.h"
#include "programs/fleet_wire.h"
#include "programs/limits.h"
#include "programs/log_result.h"
#include "programs/messages/invalid.h"
#include "programs/messages/json_text.h"
#include "programs/messages/log_names.h"

namespace zor::bridge {
namespace {

using Json = nlohmann::ordered_json;

constexpr uint32_t kDefaultLines = 50;
constexpr uint32_t kQueryFailed = 0xffffffff;
constexpr size_t kMostBytes = 4 << 20;  // far more than the lines of one answer

// Invalid for a payload that makes no query.
ZOR_LOG_QUERY QueryOf(const std::string &payload) {
  constexpr char kForm[] = R"(give {"count":N,"level":"...","type":"..."})";
  const Json asked = payload.empty() ? Json::object() : messages::ParseJson(payload);
  if (!asked.is_object()) throw messages::Invalid("not an object", kForm);
  uint64_t count = kDefaultLines;
  std::string level;
  std::vector<std::string> types;
  for (const auto &[name, value] : asked.items()) {
    if (name == "count" && value.is_number_unsigned()) {
      count = value.get<uint64_t>();
    } else if (name == "level" && value.is_string()) {
      level = value.get<std::string>();
    } else if (name == "type" && value.is_string()) {
      types.push_back(value.get<std::string>());
    } else {
      throw messages::Invalid("unknown member", kForm);
    }
  }
  ZOR_LOG_QUERY query = {};
  query.typeLevel = messages::LogTypes(types) << ZOR_LOG_TYPE_SHIFT | messages::LogLevels(level);
  query.count = static_cast<uint32_t>(std::clamp<uint64_t>(count, 1, limits::zorbridge::kLogLines));
  return query;
}

std::string LinesMember(std::string_view text) {
  Json lines = Json::array();
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return "\"lines\":" + messages::JsonText(lines);
}

void Ask(const std::string &directory, ZOR_LOG_QUERY query, const Requests::Own &request) {
  const auto file = std::make_shared<daemon::LogResult>(directory, "zorbridge");
  if (!file->NameIn(query)) return request.failed(fleet::result::kGone, "log_directory is too long");
  const auto then = [file, done = request.done, failed = request.failed](const ZOR_MSG_HEAD *reply,
                                                                         daemon::NoReply why) {
    if (reply == nullptr && why == daemon::NoReply::kTimeOver) {
      file->GiveUp();
      return failed(fleet::result::kLate, "the log daemon is slow");
    }
    if (reply == nullptr) return failed(fleet::result::kAbsent, "the log daemon is not there");
    const auto text = reply->data == kQueryFailed ? std::nullopt : file->Text(kMostBytes);
    if (!text)
      return failed(fleet::result::kGone, "the log daemon could not write the lines where the bridge can read them");
    done(LinesMember(*text));
  };
  const std::string_view body(reinterpret_cast<const char *>(&query), sizeof query);
  const auto time = std::chrono::ceil<std::chrono::milliseconds>(request.deadline - Requests::Clock::now());
  daemon::AskBus({ZOR_LOG_DAEMON_NAME, ZOR_LOG_MSG_QUERY, 0, std::string(body)}, time, then);
}

}  // namespace

void ServeLog(const std::string &directory, const Requests::Own &request) {
  try {
    Ask(directory, QueryOf(request.payload), request);
  } catch (const messages::Invalid &problem) {
    request.failed(fleet::result::kInvalid, std::string(problem.what()) + "; " + problem.advice);
  }
}

}  // namespace zor::bridge
