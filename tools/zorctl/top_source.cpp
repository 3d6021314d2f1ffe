#include "zorctl/top_source.h"

#include <algorithm>

#include "zorctl/format.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

// Rates should not be missing for a whole interval.
constexpr Milliseconds kFirstInterval{400};
// A reply that takes longer is worth a word.
constexpr Milliseconds kOverdue{1000};

}  // namespace

std::optional<TopData> TopSource::Turn() {
  std::optional<TopData> data;
  if (auto answer = sampler_.Take()) data = Take(std::move(*answer));
  const auto now = Clock::now();
  if (!sampler_.asking() && now >= next_) {
    next_ = now + (before_ || failure_ ? interval_ : std::min(interval_, kFirstInterval));
    sampler_.Ask();
  }
  return data;
}

std::optional<TopData> TopSource::Take(Sampler::Answer answer) {
  failure_ = std::move(answer.failure);
  if (failure_) return std::nullopt;
  auto sample = busview::ReadSample(answer.list, Clock::now());
  if (!sample) {
    failure_.emplace(kExitFailure, "the message server sent a list that cannot be read",
                     "use a server and a tool of the same version");
    return std::nullopt;
  }
  TopData data{std::move(*sample), {}, {answer.list.size(), LeastTime(answer.time), interval_}};
  data.view = MakeView(before_ ? &*before_ : nullptr, data.sample);
  before_ = data.sample;
  return data;
}

// A reply may wait for other work of the server; the fastest of the latest waited least.
std::chrono::microseconds TopSource::LeastTime(std::chrono::microseconds latest) {
  constexpr size_t kRemembered = 10;
  times_.push_back(latest);
  if (times_.size() > kRemembered) times_.pop_front();
  return *std::min_element(times_.begin(), times_.end());
}

Milliseconds TopSource::left() const {
  if (sampler_.asking()) return kOverdue;
  const auto left = std::chrono::ceil<Milliseconds>(next_ - Clock::now());
  return std::max(left, Milliseconds(0));
}

std::string TopSource::Trouble() const {
  if (failure_) return Escape(failure_->what()) + "; reconnecting";
  const Milliseconds asking = sampler_.askingFor();
  return asking < kOverdue ? "" : "the message server has not replied for " + LongAgeText(asking);
}

}  // namespace zor::ctl
