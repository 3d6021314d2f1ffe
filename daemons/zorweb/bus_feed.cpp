#include "zorweb/bus_feed.h"

#include <zor/control_wire.h>

#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "programs/version.h"
#include "zorweb/view_json.h"

namespace zor::web {
namespace {

using Json = nlohmann::ordered_json;
using SteadyClock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kServerTime{5000};
// Between questions that a server does not read: they wait in its socket, and when that is full they stop this daemon.
constexpr std::chrono::seconds kSlowPause(15);
constexpr char kGone[] = "The message server has gone. This page resumes as soon as it is back.";
constexpr char kSlow[] = "The message server does not answer.";
constexpr char kRefused[] = "The message server's rules do not allow this page to list the daemons.";

std::int64_t UnixMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::string TextOf(const Json &json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Who waits for the list that has been asked for: the server is asked once, however many want to know.
std::vector<BusFeed::OnList> &Askers() {
  static std::vector<BusFeed::OnList> askers;
  return askers;
}

void AnswerAll(std::string_view list, const std::string &trouble) {
  for (const BusFeed::OnList &then : std::exchange(Askers(), {})) then(list, trouble);
}

}  // namespace

void BusFeed::Ask(OnList then) {
  Askers().push_back(std::move(then));
  if (Askers().size() > 1) return;
  daemon::AskBus({"", ZOR_MSG_CONTROL_LIST, 0, ""}, kServerTime, [](const ZOR_MSG_HEAD *reply, daemon::NoReply why) {
    if (reply == nullptr) return AnswerAll({}, why == daemon::NoReply::kTimeOver ? kSlow : kGone);
    if (reply->data != ZOR_CONTROL_OK) return AnswerAll({}, kRefused);
    AnswerAll(daemon::BodyOf(*reply), "");
  });
}

void BusFeed::OnTick() {
  const auto now = SteadyClock::now();
  // A moment less than the time: the ticks are as far apart.
  const bool due =
      !pages_.empty() || (idlePeriod_.count() > 0 && now - lookedAt_ >= idlePeriod_ - std::chrono::milliseconds(500));
  const bool pausing = trouble_ == kSlow && now - lookedAt_ < kSlowPause;
  if (due && !looking_ && !pausing) Look();
}

void BusFeed::Look() {
  looking_ = true;
  lookedAt_ = SteadyClock::now();
  Ask([this](std::string_view list, const std::string &trouble) {
    looking_ = false;
    SetTrouble(trouble);
    if (trouble.empty()) Take(list);
  });
}

void BusFeed::Take(std::string_view list) {
  auto sample = busview::ReadSample(list, SteadyClock::now());
  if (!sample) return SetTrouble("The message server sent a list that cannot be read.");
  const busview::View view = busview::MakeView(sample_ ? &*sample_ : nullptr, *sample);
  const std::int64_t now = UnixMs();
  history_.Add(now, *sample, view);
  const bool lost = sample_ && losses_.Add(now, *sample_, *sample);
  sample_ = std::move(sample);
  if (pages_.empty()) return view_.clear();
  view_ = TextOf(ViewJson(now, *sample_, view));
  pages_.Push("view", view_);
  if (lost) pages_.Push("losses", TextOf(losses_.AsJson()));
}

std::string BusFeed::State() const {
  return TextOf({{"trouble", trouble_}, {"version", daemon::Version()}});
}

void BusFeed::SetTrouble(const std::string &trouble) {
  if (std::exchange(trouble_, trouble) != trouble) pages_.Push("state", State());
}

// A server that was handed over keeps its clients and counters; one that was started anew does not.
void BusFeed::OnBusLost() {
  SetTrouble(kGone);
}

void BusFeed::Greet(EventStream &stream) {
  stream.Push(MakeEvent("state", State()));
  stream.Push(MakeEvent("history", TextOf(history_.AsJson())));
  stream.Push(MakeEvent("losses", TextOf(losses_.AsJson())));
  if (!view_.empty()) stream.Push(MakeEvent("view", view_));
  if (!looking_) Look();
}

}  // namespace zor::web
