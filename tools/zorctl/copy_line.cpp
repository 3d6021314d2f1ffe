#include "zorctl/copy_line.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "programs/format_time.h"
#include "programs/messages/message_types.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::ordered_json;
using messages::BusCopy;

constexpr uint64_t kMicrosInSecond = 1'000'000;
constexpr size_t kNameWidth = ZOR_MSG_NAME_SIZE - 1;
constexpr size_t kTypeWidth = 20;

std::string LocalTimeOfDay(uint64_t timeUs) {
  const auto seconds = static_cast<std::time_t>(timeUs / kMicrosInSecond);
  std::array<char, 8> millis{};
  std::snprintf(millis.data(), millis.size(), ".%03u", static_cast<unsigned>(timeUs % kMicrosInSecond / 1000));
  return daemon::FormatTime(seconds, "%H:%M:%S", ::localtime_r) + millis.data();
}

std::string NameText(std::string_view name) {
  return PadRight(name.empty() ? "-" : Escape(name), kNameWidth);
}

std::string NumberText(uint64_t number, size_t width) {
  return PadLeft(std::to_string(number), width);
}

}  // namespace

std::string CopyTitles() {
  return "TIME          FROM           TO           TYPE                     SEQ       DATA  BYTES  BODY";
}

std::string CopyLine(const BusCopy &copy, bool isReply) {
  std::string line = LocalTimeOfDay(copy.copy.timeUs) + "  ";
  line += NameText(copy.source()) + (copy.delivered() ? " -> " : " -x ") + NameText(copy.receiver());
  line += "  " + PadRight(messages::TypeText(copy.type()), kTypeWidth);
  line += NumberText(copy.head.sequence, 8) + NumberText(copy.head.data, 11) + NumberText(copy.head.bodyLength, 7);
  const Json body = messages::CopyBody(copy, isReply);
  return body.empty() ? line : line + "  " + body.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace zor::ctl
