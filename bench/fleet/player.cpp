#include "fleet/player.h"

#include <algorithm>
#include <random>
#include <utility>

#include "zorbridge/time_text.h"

namespace zor::fleet {
namespace {

using bridge::Publication;
using bridge::Session;
using bridge::SessionEvent;

std::mt19937_64 &Dice() {
  static std::mt19937_64 dice(std::random_device{}());
  return dice;
}

// So that not all of them have something to do in the same moment.
Clock::duration PartOf(Clock::duration whole) {
  return Clock::duration(
      static_cast<Clock::rep>(Dice()() % static_cast<uint64_t>(std::max<Clock::rep>(whole.count(), 1))));
}

std::string RandomStream() {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "0000000000000000";
  for (int i = 0; i < 12; ++i) text[static_cast<std::size_t>(i)] = kDigits[Dice()() % 16];
  return text;
}

// What the message server of a small gateway lists.
std::string BusOfSixDaemons() {
  std::string daemons;
  for (const char *name : {"cms", "syslog", "web", "lan", "wlan", "bridge"}) {
    daemons += std::string(daemons.empty() ? "" : ",") + R"({"name":")" + name +
               R"(","pid":1234,"user":0,"connected_s":86400,"received":123456,"sent":123456,"queued":0,"refused":0})";
  }
  return R"({"server":{"version":"1.0.1","uptime_s":86400,"memory":1048576},"daemons":[)" + daemons + "]}";
}

}  // namespace

Player::Player(const Script &script, Totals &totals, const std::string &gateway)
    : script_(script), totals_(totals), gateway_(gateway), stream_(RandomStream()), retry_(script.retry) {
  nextAttempt_ = Clock::now() + retry_.Next();
  nextEvent_ = script.eventsBegin + PartOf(script.eventInterval);
  ended_ = script.eventInterval == Clock::duration{};
}

Clock::time_point Player::Work(Clock::time_point now) {
  if (session_ == nullptr && now >= nextAttempt_) {
    Attempt(now);
  } else if (session_ != nullptr && !accepted_ && now >= since_ + script_.connectTime) {
    Lose();
  }
  MakeEvents(now);
  if (accepted_ && now >= nextKeepAlive_) {
    nextKeepAlive_ = now + std::chrono::seconds(script_.keepAliveSeconds) / 4;
    session_->KeepAlive();
    Take();
  }
  if (accepted_ && now >= nextStatus_) PublishStatus();
  Pump();
  Clock::time_point next = ended_ ? Clock::time_point::max() : nextEvent_;
  if (session_ == nullptr) return std::min(next, nextAttempt_);
  if (!accepted_) return std::min(next, since_ + script_.connectTime);
  return std::min({next, nextKeepAlive_, nextStatus_});
}

void Player::Attempt(Clock::time_point now) {
  Session::Options options;
  options.clientId = gateway_;
  options.willTopic = script_.prefix + '/' + gateway_ + "/presence";
  options.willPayload = Presence(false);
  options.keepAliveSeconds = script_.keepAliveSeconds;
  options.inFlight = script_.inFlight;
  options.largestPacket = 256 * 1024;
  options.tls = script_.tls;
  ++totals_.attempts;
  std::string problem;
  session_ = Session::Connect(options, "127.0.0.1", script_.port, &problem);
  since_ = now;
  if (session_ != nullptr) return;
  ++totals_.unreached;
  nextAttempt_ = now + retry_.Next();
}

// The line has ended, or there was none.
void Player::Lose() {
  const Clock::time_point now = Clock::now();
  if (accepted_) {
    ++totals_.lost;
    --totals_.connected;
    retry_.Ended(std::chrono::duration_cast<std::chrono::milliseconds>(now - since_));
  } else {
    ++(session_->refused() ? totals_.refused : totals_.unreached);
    if (session_->refused()) retry_.Refused();
  }
  session_.reset();
  accepted_ = false;
  if (!underWay_.empty()) sent_ = underWay_.front().number - 1;
  underWay_.clear();
  nextAttempt_ = now + retry_.Next();
}

void Player::OnReady(bool readable, bool writable) {
  if (session_ != nullptr && readable) session_->Read();
  if (session_ != nullptr && writable && !session_->ended()) session_->Write();
  Take();
  Pump();
}

// What has happened in the session.
void Player::Take() {
  if (session_ == nullptr) return;
  for (const SessionEvent &event : session_->TakeEvents()) {
    switch (event.kind) {
      case SessionEvent::Kind::kAccepted:
        session_->Subscribe({script_.prefix + '/' + gateway_ + "/call/+/+"}, false);
        break;
      case SessionEvent::Kind::kSubscribed:
        OnAccepted();
        break;
      case SessionEvent::Kind::kPublished:
        OnPublished(event.id);
        break;
      case SessionEvent::Kind::kDelivery:
        OnDelivery(event.delivery);
        break;
    }
  }
  if (session_->ended()) Lose();
}

void Player::OnAccepted() {
  accepted_ = true;
  ++totals_.connected;
  since_ = Clock::now();
  nextKeepAlive_ = since_ + std::chrono::seconds(script_.keepAliveSeconds) / 4;
  nextStatus_ = since_ + PartOf(script_.statusInterval);
  Publication birth;
  birth.topic = script_.prefix + '/' + gateway_ + "/presence";
  birth.payload = Presence(true);
  birth.retain = true;
  Publish(std::move(birth));
}

void Player::OnPublished(int id) {
  const auto found =
      std::find_if(underWay_.begin(), underWay_.end(), [id](const UnderWay &each) { return each.id == id; });
  if (found == underWay_.end()) return;
  underWay_.erase(found);
  ++acknowledged_;
  ++totals_.acknowledged;
}

void Player::OnDelivery(const bridge::Delivery &delivery) {
  if (delivery.responseTopic.empty() || delivery.correlation.empty()) return;
  Publication reply;
  reply.topic = delivery.responseTopic;
  reply.correlation = delivery.correlation;
  reply.payload = R"({"schema":1,"gateway":")" + gateway_ + R"(","result":"done","data":0})";
  ++totals_.answered;
  Publish(std::move(reply));
}

void Player::MakeEvents(Clock::time_point now) {
  while (!ended_ && now >= nextEvent_) {
    ++made_;
    ++totals_.made;
    nextEvent_ += script_.eventInterval;
    ended_ = nextEvent_ >= script_.eventsEnd;
  }
}

void Player::Pump() {
  while (accepted_ && !session_->ended() && sent_ < made_ && underWay_.size() < script_.inFlight) {
    int id = 0;
    Publish(Event(sent_ + 1), &id);
    if (session_->ended()) break;
    underWay_.push_back({id, ++sent_});
  }
  if (session_ != nullptr && session_->ended()) Take();
}

void Player::Publish(Publication publication, int *id) {
  publication.properties.emplace_back("schema", "1");
  int ignored = 0;
  std::string problem;
  session_->Publish(publication, id == nullptr ? &ignored : id, &problem);
}

Publication Player::Event(uint64_t number) const {
  Publication event;
  event.topic = script_.prefix + '/' + gateway_ + "/event/lan/HostSeen";
  const std::string count = std::to_string(number);
  event.payload = R"({"schema":1,"gateway":")" + gateway_ + R"(","stream":")" + stream_ + R"(","number":)" + count +
                  R"(,"time":")" + bridge::TimeText(bridge::UnixMs()) +
                  R"(","module":"lan","name":"HostSeen","type":"0x2DA66","event":{"seq":)" + count +
                  (ended_ && number == made_ ? R"(,"end":true)" : "") + R"(,"mac":"00:11:22:33:44:55"}})";
  event.properties = {{"stream", stream_}, {"number", count}};
  return event;
}

std::string Player::Presence(bool online) const {
  return R"({"schema":1,"gateway":")" + gateway_ + R"(","online":)" + (online ? "true" : R"(false,"reason":"lost")") +
         R"(,"since":")" + bridge::TimeText(bridge::UnixMs()) +
         R"(","version":"1.0.1","bridge":"zorbridge","stream":")" + stream_ + "\"}";
}

void Player::PublishStatus() {
  static const std::string bus = BusOfSixDaemons();
  nextStatus_ += script_.statusInterval;
  Publication status;
  status.topic = script_.prefix + '/' + gateway_ + "/status";
  status.retain = true;
  status.payload = R"({"schema":1,"gateway":")" + gateway_ + R"(","time":")" + bridge::TimeText(bridge::UnixMs()) +
                   R"(","version":"1.0.1","uptime_s":86400,"unwell":[],"queue":{"records":)" +
                   std::to_string(made_ - acknowledged_) +
                   R"(,"bytes":0,"limit_bytes":33554432,"oldest":null,"given_up":0,"written_today_bytes":0,)"
                   R"("daily_bytes":268435456},"line":{"broker":"127.0.0.1:)" +
                   std::to_string(script_.port) + R"(","connects":1,"failures":0},"bus":)" + bus + '}';
  Publish(std::move(status));
}

}  // namespace zor::fleet
