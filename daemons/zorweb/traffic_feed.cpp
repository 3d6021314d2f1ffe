#include "zorweb/traffic_feed.h"

#include <zor/msg.h>

#include <utility>

#include "programs/limits.h"
#include "programs/messages/message_types.h"
#include "programs/messages/text.h"
#include "zorweb/bus_name.h"

namespace zor::web {
namespace {

using namespace limits::zorweb;  // NOLINT(google-build-using-namespace): its own limits
using Json = nlohmann::ordered_json;
using messages::Escape;

std::string BodyText(const messages::BusCopy &copy, bool isReply) {
  if (copy.body.empty()) return {};
  const Json body = messages::CopyBody(copy, isReply);
  if (body.empty()) return {};
  const std::string text = messages::EscapeJson(body.dump(-1, ' ', false, Json::error_handler_t::replace));
  const std::string_view cut = messages::CutText(text, kTrafficBody);
  return cut.size() < text.size() ? std::string(cut) + "\u2026" : text;
}

}  // namespace

// What all pages want together: one filter if they agree, otherwise everything.
std::optional<TrafficFilter> TrafficFeed::Wanted() const {
  std::optional<TrafficFilter> wanted;
  for (const auto &each : pages_.all()) {
    if (each->ended() || !each->wants().traffic) continue;
    TrafficFilter filter = each->wants().filter;
    filter.undelivered = false;
    if (wanted && *wanted != filter) return TrafficFilter();
    wanted = filter;
  }
  return wanted;
}

void TrafficFeed::Monitor(const std::optional<TrafficFilter> &filter) {
  if (filter == monitored_) return;
  const ZOR_CONTROL_FILTER request = filter.value_or(TrafficFilter()).AsRequest();
  ZOR_MSG_SendMsgData("", ZOR_MSG_CONTROL_MONITOR, filter ? &request : nullptr, filter ? sizeof request : 0);
  monitored_ = filter;
}

void TrafficFeed::OnTick() {
  inSecond_ = 0;
  paused_ = false;
  for (auto &[stream, batch] : batches_) batch.inSecond = 0;
  Monitor(Wanted());
}

Json TrafficFeed::Describe(const messages::BusCopy &copy) {
  const bool isReply = conversations_.IsReply(copy);
  return {{"time", copy.copy.timeUs / 1000},         {"from", Escape(copy.source())},  {"to", Escape(copy.receiver())},
          {"type", messages::TypeText(copy.type())}, {"sequence", copy.head.sequence}, {"data", copy.head.data},
          {"bytes", copy.head.bodyLength},           {"delivered", copy.delivered()},  {"reply", isReply},
          {"body", BodyText(copy, isReply)}};
}

void TrafficFeed::Take(std::string_view body) {
  const auto copy = messages::ParseCopy(body);
  if (!copy) return;
  missed_ += copy->copy.missed;
  // What this program itself asks of the server once a second.
  if (copy->source() == kBusName || copy->receiver() == kBusName) return;
  Json described;
  for (const auto &each : pages_.all()) {
    if (each->ended() || !each->wants().traffic || !each->wants().filter.Matches(*copy)) continue;
    Batch &batch = batches_[each.get()];
    if (batch.inSecond >= kTrafficPerSecond) {
      ++batch.leftOut;
      continue;
    }
    ++batch.inSecond;
    if (described.is_null()) described = Describe(*copy);
    batch.messages.push_back(described);
  }
  if (++inSecond_ < kCopiesPerSecond || paused_) return;
  paused_ = true;
  Monitor(std::nullopt);
}

void TrafficFeed::TakeReply(std::uint32_t result) {
  const std::string problem =
      result == ZOR_CONTROL_OK ? "" : Json("The message server's rules do not allow this page to see messages.").dump();
  if (std::exchange(problem_, problem) != problem && !problem.empty()) {
    pages_.Push("traffic-problem", problem, &Wants::traffic);
  }
}

void TrafficFeed::Greet(EventStream &stream) const {
  if (stream.wants().traffic && !problem_.empty()) stream.Push(MakeEvent("traffic-problem", problem_));
}

void TrafficFeed::OnFlush() {
  std::map<const EventStream *, Batch> left;
  for (const auto &each : pages_.all()) {
    if (each->ended() || !each->wants().traffic) continue;
    const auto found = batches_.find(each.get());
    Batch batch = found == batches_.end() ? Batch() : std::move(found->second);
    if (!batch.messages.empty() || batch.leftOut > 0 || missed_ > 0 || paused_) {
      const Json data = {
          {"messages", std::move(batch.messages)}, {"left_out", batch.leftOut + missed_}, {"paused", paused_}};
      each->Push(MakeEvent("traffic", data.dump(-1, ' ', false, Json::error_handler_t::replace)));
    }
    left[each.get()].inSecond = batch.inSecond;
  }
  missed_ = 0;
  batches_ = std::move(left);
  // A page that has just been opened does not wait for the next second.
  if (!paused_) Monitor(Wanted());
}

}  // namespace zor::web
