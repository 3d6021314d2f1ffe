#include "msgsvr/deliveries.h"

#include <zor/msg_wire.h>

#include <algorithm>
#include <utility>

namespace zor::msgsvr {

Deliveries::Deliveries(State state) : records_(std::move(state.records)), base_(state.base), checkAt_(CheckAt()) {
  if (!state.files.empty()) {
    files_ = std::make_unique<Files>();
    files_->checkAt = state.files.size() * 2 + 1;
    files_->list = std::move(state.files);
  }
  descriptors_ = static_cast<uint32_t>(records_.size());  // at most
  CountDescriptors();
}

void Deliveries::ReserveFile() {
  if (files_ == nullptr) files_ = std::make_unique<Files>();
  auto &list = files_->list;
  if (list.size() == list.capacity()) list.reserve(2 * list.size() + 1);
}

void Deliveries::DropNewest(size_t count) {
  records_.resize(records_.size() - std::min(count, records_.size()));
  CountDescriptors();
  while (!files().empty() && files().back().record >= base_ + records_.size()) files_->list.pop_back();
}

void Deliveries::ClearRecords() {
  constexpr size_t kKept = 64;
  // A client that was busy once does not keep its memory; one that is busy does not allocate it again and again.
  const bool oversized = records_.capacity() > kKept && records_.size() < records_.capacity() / 8;
  base_ += records_.size();
  records_.clear();
  descriptors_ = 0;
  if (oversized) records_.shrink_to_fit();
  checkAt_ = kFirstCheck;
}

void Deliveries::Forget(size_t count) {
  count = std::min(count, records_.size());
  records_.erase(records_.begin(), records_.begin() + static_cast<std::ptrdiff_t>(count));
  base_ += count;
  CountDescriptors();
}

size_t Deliveries::DescriptorsFrom(uint64_t id) const {
  if (descriptors_ == 0) return 0;
  return static_cast<size_t>(std::ranges::count_if(
      records_, [&](const Delivered &record) { return record.isDescriptor() && record.from == id; }));
}

void Deliveries::KeepDescriptors(size_t count) {
  if (descriptors_ <= count) return;
  size_t read = descriptors_ - count;
  size_t last = 0;
  while (read > 0) {
    if (records_[last++].isDescriptor()) --read;
  }
  Forget(last);
}

void Deliveries::CountDescriptors() {
  if (descriptors_ == 0) return;
  descriptors_ = static_cast<uint32_t>(std::ranges::count_if(records_, &Delivered::isDescriptor));
}

Deliveries::Unread Deliveries::UnreadOf(uint64_t bytes, size_t queued, uint32_t nowMs) const {
  Unread unread{bytes, 0, 0, false};
  uint64_t covered = 0;
  for (auto record = records_.rbegin(); record != records_.rend() && covered < bytes; ++record) {
    covered += record->bytes;
    unread.oldestMs = nowMs - record->timeMs;
    if (record->bytes >= ZOR_MSG_HEAD_SIZE) ++unread.messages;  // anything shorter is a descriptor frame
  }
  unread.atLeast = covered < bytes;
  unread.messages = std::max<uint64_t>(unread.messages, queued);
  return unread;
}

std::span<const Delivered> Deliveries::Newest(uint64_t bytes) const {
  uint64_t covered = 0;
  size_t first = records_.size();
  while (first > 0 && covered < bytes) covered += records_[--first].bytes;
  return std::span(records_).subspan(first);
}

}  // namespace zor::msgsvr
