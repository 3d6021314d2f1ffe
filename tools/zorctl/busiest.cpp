#include "zorctl/busiest.h"

#include <algorithm>

namespace zor::ctl {

void Busiest::Add(const messages::BusCopy &copy) {
  const auto is = [&](const Kind &kind) { return kind.type == copy.type() && kind.source == copy.source(); };
  if (latest_ >= kinds_.size() || !is(kinds_[latest_])) {
    latest_ = static_cast<size_t>(std::find_if(kinds_.begin(), kinds_.end(), is) - kinds_.begin());
    if (latest_ == kMaxKinds) return;
    if (latest_ == kinds_.size()) kinds_.push_back({copy.type(), std::string(copy.source())});
  }
  ++kinds_[latest_].count;
}

Busiest::Kind Busiest::kind() const {
  const auto most =
      std::max_element(kinds_.begin(), kinds_.end(), [](const Kind &a, const Kind &b) { return a.count < b.count; });
  return most == kinds_.end() ? Kind() : *most;
}

}  // namespace zor::ctl
