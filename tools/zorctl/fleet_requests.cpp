#include "zorctl/fleet_requests.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>

#include "programs/messages/json_text.h"
#include "zorctl/fleet_report.h"
#include "zorctl/output.h"

namespace zor::ctl {
namespace {

// A bridge reports at the end of a request's time that the daemon has not replied. That is worth the wait.
constexpr Milliseconds kGrace{500};

// A gateway must not guess another one's.
std::string NewCorrelation() {
  std::random_device random;
  std::array<char, 17> text{};
  std::snprintf(text.data(), text.size(), "%08x%08x", random(), random());
  return text.data();
}

FleetAnswer AnswerOf(const std::string &gateway, const std::string &payload) {
  FleetAnswer answer{gateway, Outcome::kMalformed, "", messages::ParseJson(payload)};
  const auto outcome = ParseOutcome(TextOf(answer.reply, "result"));
  // A reply for another gateway's name would be taken for that one's.
  if (!outcome || TextOf(answer.reply, "gateway") != gateway) {
    answer.reason = "not a reply of this gateway";
    return answer;
  }
  answer.outcome = *outcome;
  answer.reason = TextOf(answer.reply, "reason");
  return answer;
}

}  // namespace

FleetRequests::FleetRequests(Fleet &fleet, std::string path, std::string payload)
    : fleet_(fleet), path_(std::move(path)), payload_(std::move(payload)) {}

void FleetRequests::Start(const Gateway &gateway, size_t index) {
  names_.push_back(gateway.name);
  if (auto absence = AbsenceOf(gateway)) return Finish(index, std::move(*absence));
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(fleet_.timeout());
  const std::string correlation = NewCorrelation();
  fleet_.line().Publish({fleet_.TopicOf(gateway.name, path_), payload_, fleet_.replyTopic(), correlation,
                         static_cast<uint32_t>(seconds.count())});
  pending_.push_back({index, correlation, Deadline(fleet_.timeout() + kGrace)});
  awaited_[correlation] = index;
}

void FleetRequests::Finish(size_t index, FleetAnswer answer) {
  finished_.emplace(index, std::move(answer));
}

void FleetRequests::Take(const FleetDelivery &delivery, FleetSum &sum) {
  if (delivery.refusal.empty() && delivery.topic != fleet_.replyTopic()) return;
  const auto awaited = awaited_.extract(delivery.correlation);
  if (awaited.empty()) return sum.CountSurplus();
  const size_t index = awaited.mapped();
  if (delivery.refusal.empty()) {
    Finish(index, AnswerOf(names_[index], delivery.payload));
  } else {
    Finish(index, {names_[index], Outcome::kRefused, "by the broker: " + delivery.refusal, {}});
  }
}

void FleetRequests::Expire() {
  while (!pending_.empty() && (pending_.front().deadline.over() || !awaited_.contains(pending_.front().correlation))) {
    const Pending &oldest = pending_.front();
    if (awaited_.erase(oldest.correlation) == 1) {
      Finish(oldest.index, {names_[oldest.index], Outcome::kNoReply, "", {}});
    }
    pending_.pop_front();
  }
}

// All that is under way has no reply.
void FleetRequests::Abandon() {
  for (const auto &[correlation, index] : awaited_) Finish(index, {names_[index], Outcome::kNoReply, "stopped", {}});
  awaited_.clear();
}

void FleetRequests::Run(const std::vector<Gateway> &gateways, FleetSum &sum,
                        const std::function<void(const FleetAnswer &)> &onAnswer) {
  daemon::StopSignal stop;
  fleet_.AwaitReplies();
  fleet_.line().StopWith(stop);
  for (size_t passed = 0; passed < gateways.size();) {
    const bool stopped = fleet_.line().stopped();
    for (; next_ < gateways.size() && awaited_.size() < fleet_.scope().parallel; ++next_) {
      if (!stopped) {
        Start(gateways[next_], next_);
      } else {
        Finish(next_, {gateways[next_].name, Outcome::kNotAsked, "", {}});
      }
    }
    for (; finished_.contains(passed); ++passed) {
      if (OutputIsTerminal()) progress_.Hide();
      onAnswer(finished_.extract(passed).mapped());
    }
    if (awaited_.empty()) continue;
    progress_.Show(next_ - awaited_.size(), gateways.size(), "gateways");
    if (const auto delivery = fleet_.line().Receive(pending_.front().deadline)) Take(*delivery, sum);
    Expire();
    if (fleet_.line().stopped()) Abandon();
  }
}

}  // namespace zor::ctl
