#include "zorbridge/uplink.h"

#include <zor/uv.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "programs/fleet_wire.h"
#include "programs/limits.h"
#include "zorbridge/time_text.h"

namespace zor::bridge {
namespace {

using namespace limits::zorbridge;  // NOLINT(google-build-using-namespace): its own limits

// Tokens of publications: of a record in the queue twice its number, of others an odd one.
constexpr uint64_t QueueToken(uint64_t number) {
  return number << 1;
}
constexpr bool IsOfQueue(uint64_t token) {
  return (token & 1) == 0;
}

std::size_t SizeOf(const Publication &publication) {
  return publication.topic.size() + publication.payload.size() + publication.correlation.size();
}

void WaitAtMost(std::chrono::nanoseconds time) {
  const auto us = std::max(std::chrono::ceil<std::chrono::microseconds>(time).count(), int64_t{0});
  constexpr int64_t kSecond = 1'000'000;
  const UvTime timeout = {static_cast<int32_t>(us / kSecond), static_cast<int32_t>(us % kSecond)};
  ZOR_UV_LoopUpdateSelectTimeout(nullptr, &timeout);
}

}  // namespace

Publication MakePublication(std::string topic, std::string payload) {
  Publication publication;
  publication.topic = std::move(topic);
  publication.payload = std::move(payload);
  publication.properties.emplace_back(fleet::property::kSchema, std::to_string(fleet::kSchema));
  return publication;
}

Uplink::Uplink(std::string base, std::string gateway, Outbox &outbox)
    : base_(std::move(base)), gateway_(std::move(gateway)), outbox_(outbox) {}

Uplink::~Uplink() {
  if (hook_ != nullptr) ZOR_UV_IdleStop(hook_);
}

bool Uplink::Start(BrokerLink &link) {
  link_ = &link;
  hook_ = ZOR_UV_IdleStart(nullptr, [](UvIdle *hook, uint32_t) { static_cast<Uplink *>(hook->header.data)->Turn(); });
  if (hook_ != nullptr) hook_->header.data = this;
  return hook_ != nullptr;
}

std::string Uplink::Head() const {
  return R"({"schema":1,"gateway":")" + gateway_ + "\",";
}

std::string Uplink::Envelope(const Members &members) const {
  return Head() + R"("time":")" + TimeText(UnixMs()) + "\"," + members + '}';
}

void Uplink::Record(Keeping keeping, const std::string &topic, std::string_view group, const Members &members) {
  switch (keeping) {
    case Keeping::kOff:
      return;
    case Keeping::kDrop:
      return DropOrSend(base_ + '/' + topic, members);
    case Keeping::kLatest:
      return AddLatest(base_ + '/' + topic, Envelope(members), false);
    case Keeping::kKeep:
      return outbox_.Keep(topic, group, members);
  }
}

void Uplink::DropOrSend(std::string topic, const Members &members) {
  if (!room_) {
    ++dropped_;
    return;
  }
  Publication publication = MakePublication(std::move(topic), Envelope(members));
  publication.qos = 0;
  AddSoon(std::move(publication));
}

void Uplink::Document(const std::string &topic, std::string payload) {
  AddLatest(base_ + '/' + topic, std::move(payload), true);
}

void Uplink::Reply(std::string topic, std::string correlation, const Members &members) {
  Publication reply = MakePublication(std::move(topic), Head() + members + '}');
  reply.correlation = std::move(correlation);
  AddSoon(std::move(reply));
}

void Uplink::AddSoon(Publication publication) {
  const std::size_t size = SizeOf(publication);
  if (soon_.size() >= kSentSoon || soonBytes_ + size > kSoonBytes) {
    ++dropped_;
    return;
  }
  soonBytes_ += size;
  soon_.push_back(std::move(publication));
}

// There is always room for documents: whoever makes topics on the bus must not keep the gateway from being seen.
void Uplink::AddLatest(std::string topic, std::string payload, bool retain) {
  auto found = latest_.find(topic);
  const std::size_t others = latestBytes_ - (found == latest_.end() ? 0 : found->second.payload.size());
  const bool fits =
      (found != latest_.end() || latest_.size() < kLatestTopics) && others + payload.size() <= kLatestBytes;
  if (!fits && !retain) {
    ++dropped_;
    return;
  }
  if (found == latest_.end()) found = latest_.try_emplace(std::move(topic)).first;
  latestBytes_ = others + payload.size();
  found->second = {std::move(payload), retain, 0};
}

void Uplink::OnConnected() {
  room_ = true;
}

void Uplink::OnDisconnected() {
  room_ = false;
  dropped_ += soon_.size();
  soon_.clear();
  soonBytes_ = 0;
  for (auto &[topic, latest] : latest_) latest.token = 0;
  outbox_.Rewind();
}

void Uplink::OnAcknowledged(uint64_t token) {
  if (IsOfQueue(token)) return outbox_.Acknowledged(token >> 1);
  const auto found = std::ranges::find(latest_, token, [](const auto &each) { return each.second.token; });
  if (found == latest_.end()) return;
  latestBytes_ -= found->second.payload.size();
  latest_.erase(found);
}

void Uplink::Turn() {
  WriteQueue();
  for (uint32_t sent = 0; room_; ++sent) {
    if (sent == kSentInTurn) return WaitAtMost({});  // the rest comes in the next turn
    if (!SendSoon() && !SendLatest() && !SendQueued()) return;
  }
}

void Uplink::WriteQueue() {
  auto due = outbox_.Due();
  if (due && *due <= Outbox::Clock::now()) {
    outbox_.Write();
    due = outbox_.Due();
  }
  if (due) WaitAtMost(*due - Outbox::Clock::now());
}

bool Uplink::Publish(const Publication &publication) {
  room_ = link_->Publish(publication);
  return room_;
}

bool Uplink::SendSoon() {
  if (soon_.empty() || !Publish(soon_.front())) return false;
  soonBytes_ -= SizeOf(soon_.front());
  soon_.pop_front();
  return true;
}

bool Uplink::SendLatest() {
  if (!room_) return false;
  const auto found = std::ranges::find(latest_, uint64_t{0}, [](const auto &each) { return each.second.token; });
  if (found == latest_.end()) return false;
  Latest &latest = found->second;
  Publication publication = MakePublication(found->first, latest.payload);
  publication.retain = latest.retain;
  publication.token = lastLatest_ + 2;
  lastLatest_ = publication.token;
  if (!Publish(publication)) return false;
  latest.token = publication.token;
  return true;
}

bool Uplink::SendQueued() {
  if (!room_) return false;
  const Outbox::Record *record = outbox_.Next();
  if (record == nullptr) return false;
  Publication publication = MakePublication(base_ + '/' + record->topic, record->payload);
  publication.properties.emplace_back(fleet::property::kStream, record->stream);
  publication.properties.emplace_back(fleet::property::kNumber, std::to_string(record->number));
  publication.token = QueueToken(record->number);
  if (!Publish(publication)) return false;
  outbox_.HandedOut();
  return true;
}

}  // namespace zor::bridge
