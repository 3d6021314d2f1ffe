#include "zorbridge/requests.h"

#include <zor/msg.h>

#include <algorithm>
#include <utility>

#include "programs/bus_request.h"
#include "programs/fleet_wire.h"
#include "programs/limits.h"
#include "zorbridge/call_text.h"

namespace zor::bridge {
namespace {

using namespace limits::zorbridge;  // NOLINT(google-build-using-namespace): its own limits

std::chrono::seconds TimeOf(const Delivery &delivery) {
  if (!delivery.expirySeconds) return fleet::kDefaultTime;
  return std::min<std::chrono::seconds>(std::chrono::seconds(*delivery.expirySeconds), fleet::kMostTime);
}

std::optional<fleet::CallTopic> TargetOf(std::string_view topic, const std::string &base) {
  if (!topic.starts_with(base + '/')) return std::nullopt;
  return fleet::ParseCallTopic(topic.substr(base.size() + 1));
}

}  // namespace

Requests::Requests(const BridgeSettings &settings, Uplink &uplink, daemon::ProblemLog *log)
    : settings_(settings), uplink_(uplink), log_(log), turns_(settings.callsPerSecond) {}

void Requests::OnDelivery(const Delivery &delivery) {
  const auto target = TargetOf(delivery.topic, uplink_.base());
  if (!target || delivery.retained || !CanBeAnswered(delivery) || IsDouble(delivery)) {
    ++figures_.dropped;
    return;
  }
  const uint64_t id = ++lastId_;
  const bool taken = TakeTurn();
  pending_[id] = {delivery.responseTopic, delivery.correlation, Clock::now() + TimeOf(delivery), target->daemon, 0};
  if (!taken) return Fail(id, fleet::result::kBusy, "too many requests at once or in this second");
  if (TimeOf(delivery) == std::chrono::seconds(0)) return Fail(id, fleet::result::kLate, kOverBefore);
  if (target->daemon == fleet::kBridge) return ServeOwn(id, target->type, delivery);
  ServeByDaemon(id, target->type, delivery);
}

// Below the gateway's own topics an answer would pass for what the gateway publishes there.
bool Requests::CanBeAnswered(const Delivery &delivery) const {
  return !delivery.responseTopic.empty() && !delivery.correlation.empty() &&
         delivery.responseTopic.size() + delivery.correlation.size() <= kReturnBytes &&
         !delivery.responseTopic.starts_with(uplink_.base() + '/');
}

void Requests::OnDisconnected() {
  for (auto &[id, pending] : pending_) pending.responseTopic.clear();
}

bool Requests::IsDouble(const Delivery &delivery) {
  const std::string key = delivery.responseTopic + '\0' + delivery.correlation;
  if (std::ranges::find(remembered_, key) != remembered_.end()) return true;
  remembered_.push_back(key);
  if (remembered_.size() > kRememberedCalls) remembered_.pop_front();
  return false;
}

bool Requests::TakeTurn() {
  const Clock::time_point now = Clock::now();
  const std::chrono::duration<double> passed = now - turnsAt_;
  turnsAt_ = now;
  turns_ = std::min<double>(turns_ + passed.count() * settings_.callsPerSecond, settings_.callsPerSecond);
  if (pending_.size() >= settings_.callsAtOnce || turns_ < 1) return false;
  --turns_;
  return true;
}

void Requests::ServeOwn(uint64_t id, const std::string &name, const Delivery &delivery) {
  const auto serve = own_.find(name);
  if (!settings_.ownCalls.contains(name) || serve == own_.end()) {
    return Fail(id, fleet::result::kRefused, "the settings of the bridge do not allow call.bridge = " + name);
  }
  serve->second({delivery.payload, pending_.at(id).deadline,
                 [this, id](const std::string &members) { Done(id, "\"result\":\"done\"," + members); },
                 [this, id](std::string_view result, const std::string &reason) { Fail(id, result, reason); }});
}

void Requests::ServeByDaemon(uint64_t id, const std::string &typeText, const Delivery &delivery) {
  Pending &pending = pending_.at(id);
  std::string problem;
  const auto type = ParseCallType(typeText, &problem);
  if (!type) return Fail(id, fleet::result::kInvalid, problem);
  pending.type = *type;
  const auto allowed = settings_.calls.find(pending.daemon);
  if (allowed == settings_.calls.end() ||
      (!allowed->second.everything && !allowed->second.types.contains(pending.type))) {
    return Fail(id, fleet::result::kRefused,
                "the settings of the bridge do not allow call." + pending.daemon + " = " + typeText);
  }
  auto call = ParseCall(pending.type, delivery.payload, &problem);
  if (!call) return Fail(id, fleet::result::kInvalid, problem);
  Look(id, call->data, std::move(call->body));
}

void Requests::Look(uint64_t id, uint32_t data, std::string body) {
  const Pending &pending = pending_.at(id);
  const auto then = [this, id, data, content = std::move(body)](const ZOR_MSG_HEAD *reply, daemon::NoReply why) {
    const auto found = pending_.find(id);
    if (found == pending_.end()) return;
    if (reply == nullptr) return OnReply(id, reply, why);
    if (reply->data == 0) return Fail(id, fleet::result::kAbsent, "there is no daemon " + found->second.daemon);
    if (found->second.responseTopic.empty()) return Fail(id, fleet::result::kGone, "the line has ended");
    if (Clock::now() >= found->second.deadline) return Fail(id, fleet::result::kLate, kOverBefore);
    Pass(id, data, content);
  };
  daemon::AskBus({"", ZOR_MSG_GET_PROCESS_NUM, 0, daemon::NameField(pending.daemon)}, TimeUntil(pending.deadline),
                 then);
}

void Requests::Pass(uint64_t id, uint32_t data, std::string body) {
  const Pending &pending = pending_.at(id);
  const auto then = [this, id](const ZOR_MSG_HEAD *reply, daemon::NoReply why) { OnReply(id, reply, why); };
  daemon::AskBus({pending.daemon, pending.type, data, std::move(body)}, TimeUntil(pending.deadline), then);
}

void Requests::OnReply(uint64_t id, const ZOR_MSG_HEAD *reply, daemon::NoReply why) {
  const auto found = pending_.find(id);
  if (found == pending_.end()) return;
  const auto &[responseTopic, correlation, deadline, daemon, type] = found->second;
  if (reply != nullptr) return Done(id, TextOfReply(type, reply->data, daemon::BodyOf(*reply)));
  switch (why) {
    case daemon::NoReply::kServerGone:
      return Fail(id, fleet::result::kGone, "the message server has gone");
    case daemon::NoReply::kUndelivered:
      return Fail(id, fleet::result::kGone, daemon + " has ended, or the bus does not allow the request");
    case daemon::NoReply::kTimeOver:
      return Fail(id, fleet::result::kLate, daemon + " has not replied in time");
  }
}

void Requests::Done(uint64_t id, const Members &members) {
  if (!pending_.contains(id)) return;
  ++figures_.served;
  Answer(id, fleet::result::kDone, members);
}

void Requests::Fail(uint64_t id, std::string_view result, std::string_view reason) {
  if (!pending_.contains(id)) return;
  ++figures_.failed;
  Answer(id, result, TextOfFailure(result, reason));
}

void Requests::Answer(uint64_t id, std::string_view result, const Members &members) {
  const auto found = pending_.find(id);
  if (log_ != nullptr) {
    log_->Print("request to %s: %.*s", found->second.daemon.c_str(), static_cast<int>(result.size()), result.data());
  }
  if (!found->second.responseTopic.empty()) {
    uplink_.Reply(std::move(found->second.responseTopic), std::move(found->second.correlation), members);
  }
  pending_.erase(found);
}

}  // namespace zor::bridge
