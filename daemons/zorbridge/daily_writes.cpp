#include "zorbridge/daily_writes.h"

#include <algorithm>

namespace zor::bridge {
namespace {

constexpr std::chrono::hours kDay{24};
constexpr std::chrono::hours kSavePause{1};
constexpr std::uint64_t kSteps = 64;  // of a day's bytes, the largest ones
constexpr std::uint64_t kLeastStep = 65536;

}  // namespace

void DailyWrites::Start(std::uint64_t limit, TimePoint now) {
  *this = {};
  limit_ = limit;
  begin_ = savedAt_ = now;
}

void DailyWrites::Resume(const Saved &saved, TimePoint now) {
  const std::chrono::seconds passed(std::min<std::uint64_t>(saved.seconds, std::chrono::seconds(kDay).count()));
  begin_ = std::min(begin_, now - passed);
  used_ += saved.bytes;
  saved_ = saved.bytes;
}

void DailyWrites::Turn(TimePoint now) {
  if (now < begin_ + kDay) return;
  begin_ += (now - begin_) / kDay * kDay;
  used_ = saved_ = 0;
}

bool DailyWrites::UsedUp(TimePoint now) {
  Turn(now);
  return used_ >= limit_;
}

DailyWrites::TimePoint DailyWrites::end() const {
  return begin_ + kDay;
}

bool DailyWrites::MustSave(TimePoint now) {
  Turn(now);
  return used_ >= saved_ || now >= savedAt_ + kSavePause;
}

DailyWrites::Saved DailyWrites::ToSave(TimePoint now, bool exact) const {
  const auto passed = std::chrono::duration_cast<std::chrono::seconds>(now - begin_);
  const std::uint64_t step = std::min(std::max(written_, kLeastStep), limit_ / kSteps);
  return {exact ? used_ : used_ + step, static_cast<std::uint64_t>(passed.count())};
}

void DailyWrites::HaveSaved(const Saved &saved, TimePoint now) {
  saved_ = saved.bytes;
  savedAt_ = now;
}

}  // namespace zor::bridge
