#include "zorbridge/record_window.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace zor::bridge {

void RecordWindow::Push(KeptRecord record) {
  const std::uint64_t size = record.size();
  const bool behindHole = hole_.records > 0 || !back_.empty();
  (behindHole ? back_ : front_).push_back(std::move(record));
  (behindHole ? backBytes_ : frontBytes_) += size;
  unwrittenBytes_ += size;
}

const KeptRecord *RecordWindow::Next() {
  if (foreign_ > 0) return nullptr;
  while (handedOut_ < front_.size() && front_[handedOut_].acknowledged) HandedOut();
  if (handedOut_ == front_.size()) CloseHole();
  if (handedOut_ == front_.size()) return nullptr;
  const KeptRecord &next = front_[handedOut_];
  return StreamOf(next.key) == StreamOf(front_.front().key) ? &next : nullptr;
}

void RecordWindow::HandedOut() {
  if (handedOut_ == front_.size()) return;
  reached_ = std::max(reached_, ++handedOut_);
}

bool RecordWindow::Acknowledge(std::uint64_t number) {
  if (foreign_ > 0) {
    --foreign_;
    return false;
  }
  const auto end = front_.begin() + static_cast<std::ptrdiff_t>(handedOut_);
  const auto found = std::lower_bound(front_.begin(), end, number, [](const KeptRecord &record, std::uint64_t sought) {
    return NumberOf(record.key) < sought;
  });
  if (found == end || NumberOf(found->key) != number) return false;
  found->acknowledged = true;
  if (found != front_.begin()) return false;
  PopAcknowledged();
  return true;
}

void RecordWindow::PopAcknowledged() {
  while (!front_.empty() && front_.front().acknowledged) {
    const KeptRecord &first = front_.front();
    frontBytes_ -= first.size();
    if (first.key >= firstUnwritten_) {
      unwrittenBytes_ -= first.size();
    } else {
      staleBytes_ += first.size();
    }
    front_.pop_front();
    handedOut_ -= std::min<std::size_t>(handedOut_, 1);
    reached_ -= std::min<std::size_t>(reached_, 1);
  }
}

// Those that have been handed out once stay: one of them that is acknowledged already may not be in the file.
void RecordWindow::Written(std::uint64_t bytes) {
  unwrittenBytes_ = 0;
  const std::deque<KeptRecord> &newest = back_.empty() ? front_ : back_;
  // Behind the front there may be a hole, with newer ones that are in the file.
  if (!newest.empty()) firstUnwritten_ = std::max(firstUnwritten_, newest.back().key + 1);
  while (!back_.empty()) {
    ToHole(back_.back());
    back_.pop_back();
  }
  backBytes_ = 0;
  while (frontBytes_ > bytes && front_.size() > std::max<std::size_t>(reached_, 1)) {
    frontBytes_ -= front_.back().size();
    ToHole(front_.back());
    front_.pop_back();
  }
}

void RecordWindow::ToHole(const KeptRecord &record) {
  if (hole_.records == 0) hole_ = {0, 0, record.key, record.key + 1, record.timeMs, record.timeMs};
  if (record.key < hole_.firstKey) {
    hole_.firstKey = record.key;
    hole_.fromMs = record.timeMs;
  }
  if (record.key >= hole_.endKey) {
    hole_.endKey = record.key + 1;
    hole_.toMs = record.timeMs;
  }
  ++hole_.records;
  hole_.bytes += record.size();
}

void RecordWindow::Restore(KeptRecord record) {
  const std::uint64_t size = record.size();
  const std::int64_t key = record.key;
  const std::int64_t timeMs = record.timeMs;
  front_.push_back(std::move(record));
  frontBytes_ += size;
  --hole_.records;
  hole_.bytes -= std::min(hole_.bytes, size);
  hole_.firstKey = key + 1;
  hole_.fromMs = timeMs;
  CloseHole();
}

// Takes up where it stopped when memory has run out.
void RecordWindow::CloseHole() {
  while (hole_.records == 0 && !back_.empty()) {
    const std::uint64_t size = back_.front().size();
    front_.push_back(std::move(back_.front()));
    back_.pop_front();
    frontBytes_ += size;
    backBytes_ -= size;
  }
}

void RecordWindow::PutFirst(const Hole &hole) {
  if (hole.records > 0) {
    CloseHole();
    for (std::size_t i = 0; i < handedOut_; ++i) foreign_ += front_[i].acknowledged ? 0 : 1;
    back_ = std::move(front_);
    front_.clear();
    backBytes_ = frontBytes_;
    frontBytes_ = 0;
    handedOut_ = reached_ = 0;
    for (KeptRecord &record : back_) record.acknowledged = false;
    hole_ = hole;
  }
  firstUnwritten_ = hole.endKey;
  AllUnwritten();
}

void RecordWindow::LoseFile(KeptRecord instead) {
  if (hole_.records > 0) {
    frontBytes_ += instead.size();
    front_.push_back(std::move(instead));
    hole_ = {};
    CloseHole();
  }
  firstUnwritten_ = 0;
  AllUnwritten();
}

void RecordWindow::AllUnwritten() {
  staleBytes_ = 0;
  unwrittenBytes_ = frontBytes_ + backBytes_;
  if (!front_.empty()) firstUnwritten_ = front_.front().key;
}

void RecordWindow::MoveStreams(std::int64_t by) {
  for (auto *part : {&front_, &back_}) {
    for (KeptRecord &record : *part) record.key += KeyOf(by, 0);
  }
}

std::int64_t RecordWindow::FirstKey(std::int64_t next) const {
  if (!front_.empty()) return front_.front().key;
  if (hole_.records > 0) return hole_.firstKey;
  return back_.empty() ? next : back_.front().key;
}

std::optional<std::int64_t> RecordWindow::OldestMs() const {
  if (!front_.empty()) return front_.front().timeMs;
  if (hole_.records > 0) return hole_.fromMs;
  return back_.empty() ? std::nullopt : std::optional(back_.front().timeMs);
}

// Records are kept in the order of time, so the first unwritten one is the oldest.
std::optional<RecordWindow::TimePoint> RecordWindow::OldestUnwritten() const {
  for (const auto *part : {&front_, &back_}) {
    if (part->empty() || part->back().key < firstUnwritten_) continue;
    const auto first = std::lower_bound(part->begin(), part->end(), firstUnwritten_,
                                        [](const KeptRecord &record, std::int64_t key) { return record.key < key; });
    return first->keptAt;
  }
  return std::nullopt;
}

}  // namespace zor::bridge
