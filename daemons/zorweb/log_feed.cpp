#include "zorweb/log_feed.h"

#include <zor/log_wire.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "programs/bus_request.h"
#include "programs/limits.h"
#include "programs/log_result.h"
#include "programs/messages/log_names.h"
#include "programs/messages/text.h"
#include "zorweb/file_tail.h"

namespace zor::web {
namespace {

using namespace limits::zorweb;  // NOLINT(google-build-using-namespace): its own limits
using Json = nlohmann::ordered_json;

constexpr std::chrono::milliseconds kLogTime{5000};
constexpr std::chrono::milliseconds kInterval{1900};  // every second tick
constexpr uint32_t kQueryFailed = 0xffffffff;

// Lines for the page, the newest first.
std::string LinesJson(std::string_view text, size_t most) {
  Json lines = Json::array();
  while (!text.empty() && lines.size() < most) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    const size_t begin = text.rfind('\n') + 1;
    if (begin < text.size()) lines.push_back(messages::Escape(text.substr(begin)));
    text = text.substr(0, begin);
  }
  return Json{{"lines", lines}}.dump();
}

std::string ProblemJson(const std::string &problem) {
  // It may name a file, whose name need not be UTF-8.
  return Json{{"lines", Json::array()}, {"problem", messages::Escape(problem)}}.dump();
}

}  // namespace

void LogFeed::OnTick() {
  const auto now = std::chrono::steady_clock::now();
  if (!pages_.anyWants(&Wants::logs) || now - lookedAt_ < kInterval) return;
  lookedAt_ = now;
  ReadMlog();
  if (!asking_) AskLog();
}

void LogFeed::Greet(EventStream &stream) {
  if (!stream.wants().logs) return;
  if (!log_.empty()) stream.Push(MakeEvent("log", log_));
  if (!mlog_.empty()) stream.Push(MakeEvent("mlog", mlog_));
  lookedAt_ = {};
  OnTick();
}

void LogFeed::AskLog() {
  const auto file = std::make_shared<daemon::LogResult>(directory_, "zorweb");
  ZOR_LOG_QUERY query = {};
  if (!file->NameIn(query)) return SetLog(ProblemJson("The setting log_directory is too long."));
  query.typeLevel = messages::LogTypes({}) << ZOR_LOG_TYPE_SHIFT | messages::LogLevels("");
  query.count = kLogLines;
  asking_ = true;
  const std::string body(reinterpret_cast<const char *>(&query), sizeof query);
  daemon::AskBus(
      {ZOR_LOG_DAEMON_NAME, ZOR_LOG_MSG_QUERY, 0, body}, kLogTime,
      [this, file](const ZOR_MSG_HEAD *reply, daemon::NoReply why) {
        asking_ = false;
        if (reply == nullptr && why == daemon::NoReply::kTimeOver) file->GiveUp();
        if (reply == nullptr) {
          return SetLog(ProblemJson(why == daemon::NoReply::kTimeOver ? "The log daemon does not answer."
                                                                      : "The log daemon is not on the bus."));
        }
        const auto text = reply->data == kQueryFailed ? std::nullopt : ReadTail(file->path(), kLogBytes);
        SetLog(text ? LinesJson(*text, kLogLines)
                    : ProblemJson("The log daemon could not write its lines where this page reads them."));
      });
}

void LogFeed::SetLog(const std::string &data) {
  if (std::exchange(log_, data) != data) pages_.Push("log", data, &Wants::logs);
}

void LogFeed::ReadMlog() {
  const auto text = ReadCircularTail(mlogFile_, kLogBytes);
  const std::string data =
      text ? LinesJson(*text, kLogLines) : ProblemJson("The developers' log cannot be read: " + mlogFile_);
  if (std::exchange(mlog_, data) != data) pages_.Push("mlog", data, &Wants::logs);
}

}  // namespace zor::web
