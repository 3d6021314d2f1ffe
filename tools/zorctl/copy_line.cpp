#include "zorctl/copy_line.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>

#include "programs/format_time.h"
#include "programs/messages/message_types.h"
#include "zorctl/output.h"
#include "zorctl/reply_fields.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::ordered_json;
using messages::BusCopy;

constexpr uint64_t kMicrosInSecond = 1'000'000;
constexpr size_t kNameWidth = ZOR_MSG_NAME_SIZE - 1;
constexpr size_t kTypeWidth = 20;

// Digits of a fraction of a second.
enum Digits : size_t { kMillis = 3, kMicros = 6 };

std::string Fraction(uint64_t timeUs, Digits digits) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), ".%06u", static_cast<unsigned>(timeUs % kMicrosInSecond));
  return std::string(text.data()).substr(0, 1 + digits);
}

// Copies come many in a second, whose text is made once.
class SecondText {
 public:
  using ToParts = std::tm *(*)(const std::time_t *, std::tm *);
  SecondText(const char *format, ToParts toParts) : format_(format), toParts_(toParts) {}

  const std::string &Of(uint64_t timeUs) {
    const auto second = static_cast<std::time_t>(timeUs / kMicrosInSecond);
    if (text_.empty() || second != second_) text_ = daemon::FormatTime(second_ = second, format_, toParts_);
    return text_;
  }

 private:
  const char *format_;
  ToParts toParts_;
  std::time_t second_ = 0;
  std::string text_;
};

std::string LocalTimeOfDay(uint64_t timeUs) {
  static SecondText second("%H:%M:%S", ::localtime_r);
  return second.Of(timeUs) + Fraction(timeUs, kMillis);
}

std::string UtcTimestamp(uint64_t timeUs) {
  static SecondText second("%Y-%m-%dT%H:%M:%S", ::gmtime_r);
  return second.Of(timeUs) + Fraction(timeUs, kMicros) + "Z";
}

// Most names and bodies need no escapes; looking for those takes longer than all the rest.
bool IsPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char each) { return each >= ' ' && each <= '~' && each != '"' && each != '\\'; });
}

std::string Quoted(std::string_view text) {
  if (IsPlain(text)) return std::string("\"").append(text).append("\"");
  std::string line = JsonLine(Json(text));
  line.pop_back();  // its end
  return line;
}

std::string NameText(std::string_view name) {
  if (name.empty()) name = "-";
  if (!IsPlain(name)) return PadRight(Escape(name), kNameWidth);
  return std::string(name).append(kNameWidth - std::min(name.size(), kNameWidth), ' ');
}

std::string NumberText(uint64_t number, size_t width) {
  return PadLeft(std::to_string(number), width);
}

// The body of a message of unknown shape that is a text without escapes, and not JSON.
std::optional<std::string_view> PlainText(const BusCopy &copy) {
  std::string_view text = copy.body;
  if (text.ends_with('\0')) text.remove_suffix(1);
  if (text.empty() || text[0] == '{' || text[0] == '[' || copy.inFile() || !IsPlain(text)) return std::nullopt;
  return messages::FindType(copy.type()) == nullptr ? std::optional(text) : std::nullopt;
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
  if (const auto text = PlainText(copy)) return line.append("  {\"text\":\"").append(*text).append("\"}");
  const Json body = messages::CopyBody(copy, isReply);
  return body.empty() ? line : line + "  " + body.dump(-1, ' ', true, Json::error_handler_t::replace);
}

std::string CopyJsonLine(const BusCopy &copy, bool isReply) {
  const auto flag = [](bool value) { return value ? "true" : "false"; };
  std::string line = "{\"body\":";
  if (const auto text = PlainText(copy)) {
    line.append("{\"text\":\"").append(*text).append("\"}");
  } else {
    line += JsonLine(nlohmann::json(FieldsJson(messages::CopyBody(copy, isReply))));
    line.pop_back();
  }
  line.append(",\"body_length\":").append(std::to_string(copy.head.bodyLength));
  line.append(",\"cut\":").append(flag(copy.body.size() < copy.head.bodyLength));
  line.append(",\"data\":").append(std::to_string(copy.head.data));
  line.append(",\"delivered\":").append(flag(copy.delivered()));
  line.append(",\"destination\":").append(Quoted(copy.destination()));
  line.append(",\"missed\":").append(std::to_string(copy.copy.missed));
  line.append(",\"name\":").append(Quoted(messages::TypeText(copy.type())));
  line.append(",\"receiver\":").append(Quoted(copy.receiver()));
  line.append(",\"sequence\":").append(std::to_string(copy.head.sequence));
  line.append(",\"source\":").append(Quoted(copy.source()));
  line.append(",\"time\":").append(Quoted(UtcTimestamp(copy.copy.timeUs)));
  line.append(",\"type\":").append(std::to_string(copy.type())).append("}\n");
  return line;
}

}  // namespace zor::ctl
