#include "zorbridge/outbox_state.h"

#include <algorithm>
#include <new>
#include <utility>

#include "programs/limits.h"
#include "programs/messages/json_text.h"
#include "zorbridge/stream_name.h"
#include "zorbridge/time_text.h"

namespace zor::bridge {
namespace {

constexpr char kGapTopic[] = "gap";

std::string EnvelopeOf(const std::string &gateway) {
  return "{\"schema\":1,\"gateway\":" + messages::JsonString(gateway) + ",\"stream\":\"";
}

}  // namespace

OutboxState::OutboxState(const Outbox::Options &options, daemon::ProblemLog &problems)
    : options_(options),
      problems_(problems),
      streams_{{1, NewStreamName()}},
      now_(options.now()),
      envelope_(EnvelopeOf(options.gateway)) {
  daily_.Start(options_.dailyBytes, now_);
}

// Room must be more than for one record, so that the stream does not become a row of gaps.
bool OutboxState::IsNearlyFull() const {
  const std::uint64_t mostUnwritten = std::max(options_.groupBytes, limits::zorbridge::kUnwrittenBytes);
  return window_.bytes() > options_.queueBytes / 8 * 7 || window_.unwrittenBytes() > mostUnwritten / 8 * 7;
}

bool OutboxState::HasRoom(std::uint64_t size) {
  full_ = full_ && IsNearlyFull();
  if (full_) return false;
  const std::uint64_t mostUnwritten = std::max(options_.groupBytes, limits::zorbridge::kUnwrittenBytes);
  if (window_.bytes() + size <= options_.queueBytes && window_.unwrittenBytes() < mostUnwritten) return true;
  full_ = IsNearlyFull();
  return false;
}

void OutboxState::Keep(std::string_view topic, std::string_view group, std::string_view members) {
  now_ = options_.now();
  if (!HasRoom(topic.size() + members.size() + kRecordOverhead)) {
    GiveUp(group);
    return;
  }
  try {
    CloseGap();
    Append(topic, members, UnixMs());
  } catch (const std::bad_alloc &) {
    GiveUp(group);
    return;
  }
  WriteWhen(window_.unwrittenBytes() >= options_.groupBytes);
}

void OutboxState::GiveUp(std::string_view group) noexcept {
  if (!gap_.open()) gapWrittenAt_ = now_;
  const std::int64_t timeMs = UnixMs();
  gap_.Count(group, 1, timeMs, timeMs);
  gapCounted_ = true;
  ++givenUp_;
}

// Its record replaces the one that was written while it was open, if any.
void OutboxState::CloseGap() {
  if (!gap_.open()) return;
  Append(kGapTopic, gap_.Members(), UnixMs());
  gap_.Clear();
}

void OutboxState::Append(std::string_view topic, std::string_view members, std::int64_t timeMs) {
  KeptRecord record;
  record.key = NextKey();
  record.timeMs = timeMs;
  record.keptAt = now_;
  record.text.reserve(topic.size() + members.size());
  record.text.append(topic).append(members);
  record.topicLength = static_cast<std::uint32_t>(topic.size());
  window_.Push(std::move(record));
  ++next_;
}

void OutboxState::WriteWhen(bool due) {
  if (due && file_.isOpen() && MayWrite()) WriteGroup(false);
}

const Outbox::Record *OutboxState::Next() {
  const KeptRecord *next = window_.Next();
  if (next == nullptr && window_.WantsHole() && file_.isOpen()) {
    now_ = options_.now();
    if (!readFailed_ || now_ >= retryAt_) Load();
    next = window_.Next();
  }
  if (next == nullptr) return nullptr;
  if (next->key != recordKey_) Render(*next);
  return &record_;
}

void OutboxState::Render(const KeptRecord &record) {
  recordKey_ = -1;
  const auto stream = std::find_if(streams_.begin(), streams_.end(),
                                   [&](const Stream &each) { return each.id == StreamOf(record.key); });
  record_.number = NumberOf(record.key);
  record_.stream = stream == streams_.end() ? streams_.front().name : stream->name;
  record_.topic = record.topic();
  record_.payload.assign(envelope_).append(record_.stream).append("\",\"number\":");
  record_.payload.append(std::to_string(record_.number)).append(",\"time\":\"").append(TimeText(record.timeMs));
  record_.payload.append(record.members().empty() ? "\"" : "\",").append(record.members()).append("}");
  recordKey_ = record.key;
}

void OutboxState::HandedOut() {
  window_.HandedOut();
}

void OutboxState::Acknowledged(std::uint64_t number) {
  if (!window_.Acknowledge(number)) return;
  ForgetStreams();
  if (window_.staleBytes() > 0 && !staleSince_) staleSince_ = options_.now();
  if (gap_.open() && HasRoom(0)) {
    now_ = options_.now();
    CloseGap();
  }
  if (window_.staleBytes() < limits::zorbridge::kStaleBytes) return;
  now_ = options_.now();
  WriteWhen(true);
}

void OutboxState::ForgetStreams() {
  const std::int64_t first = StreamOf(window_.FirstKey(NextKey()));
  while (streams_.size() > 1 && streams_.front().id < first) streams_.erase(streams_.begin());
}

std::optional<OutboxState::TimePoint> OutboxState::Due() const {
  if (!file_.isOpen()) return retryAt_;
  std::optional<TimePoint> due;
  const auto atLatest = [&due](TimePoint time) { due = due ? std::min(*due, time) : time; };
  if (const auto oldest = window_.OldestUnwritten(); oldest) {
    atLatest(window_.unwrittenBytes() < options_.groupBytes ? *oldest + options_.groupTime : *oldest);
  }
  if (staleSince_) atLatest(*staleSince_ + options_.groupTime);
  if (gap_.open() && gapCounted_) atLatest(gapWrittenAt_ + kGapPause);
  if (due && writeFailed_) due = std::max(*due, retryAt_);
  if (due && usedUp_) due = std::max(*due, daily_.end());
  if (readFailed_) atLatest(retryAt_);
  return due;
}

Outbox::Figures OutboxState::figures() const {
  Outbox::Figures figures;
  figures.records = window_.records();
  figures.bytes = window_.bytes();
  figures.givenUp = givenUp_;
  figures.writtenToday = daily_.used();
  figures.writesUsedUp = usedUp_;
  figures.problem = problem_;
  if (const auto oldest = window_.OldestMs(); oldest) figures.oldest = TimeText(*oldest);
  return figures;
}

}  // namespace zor::bridge
