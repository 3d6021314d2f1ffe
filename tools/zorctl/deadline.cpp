#include "zorctl/deadline.h"

#include <algorithm>
#include <climits>

namespace zor::ctl {

Milliseconds Deadline::left() const {
  return std::max(std::chrono::ceil<Milliseconds>(end_ - Clock::now()), Milliseconds(0));
}

int Deadline::pollTimeout() const {
  return static_cast<int>(std::min<Milliseconds::rep>(left().count(), INT_MAX));
}

Deadline Deadline::Within(Milliseconds fromNow) const {
  Deadline other(fromNow);
  other.end_ = std::min(end_, other.end_);
  return other;
}

Deadline Deadline::ForServer() const {
  constexpr Milliseconds kLeast{1000};
  Deadline other(kLeast);
  other.end_ = std::max(end_, other.end_);
  return other;
}

}  // namespace zor::ctl
