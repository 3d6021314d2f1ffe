#include "mlogserver/line_rates.h"

#include <algorithm>

#include "mlogserver/datagram.h"
#include "programs/limits.h"

namespace zor::mlogserver {
namespace {

constexpr std::chrono::seconds kReportPause{1};
// Users beyond the limit share one, which is that of unknown senders.
constexpr uid_t kFurtherUsers = kUnknownUser;

}  // namespace

bool LineRates::Take(uid_t user, Clock::time_point now) {
  Share &share = ShareOf(user, now);
  share.credit = CreditAt(share, now);
  share.refilled = now;
  if (share.credit >= 1) {
    share.credit -= 1;
    return true;
  }
  if (share.leftOut++ == 0) share.since = now;
  return false;
}

void LineRates::Report(Clock::time_point now, bool all, const std::function<void(uid_t, uint64_t)> &report) {
  for (auto &[user, share] : shares_) {
    if (share.leftOut == 0 || (!all && now - share.since < kReportPause)) continue;
    report(user, share.leftOut);
    share.leftOut = 0;
  }
}

int LineRates::TimeoutMs(Clock::time_point now) const {
  Clock::duration wait = Clock::duration::max();
  for (const auto &[user, share] : shares_) {
    if (share.leftOut > 0) wait = std::min(wait, share.since + kReportPause - now);
  }
  if (wait == Clock::duration::max()) return -1;
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
  return static_cast<int>(std::max<decltype(milliseconds)>(milliseconds, 0));
}

LineRates::Share &LineRates::ShareOf(uid_t user, Clock::time_point now) {
  const auto found = shares_.find(user);
  if (found != shares_.end()) return found->second;
  if (shares_.size() >= limits::mlogserver::kUsers) ForgetIdle(now);
  if (shares_.size() >= limits::mlogserver::kUsers) user = kFurtherUsers;
  return shares_.try_emplace(user, Share{burst_, now, 0, {}}).first->second;
}

double LineRates::CreditAt(const Share &share, Clock::time_point now) const {
  const std::chrono::duration<double> passed = now - share.refilled;
  return std::min(burst_, share.credit + passed.count() * perSecond_);
}

// A user with its whole burst is as good as one never seen.
void LineRates::ForgetIdle(Clock::time_point now) {
  std::erase_if(shares_,
                [&](const auto &each) { return each.second.leftOut == 0 && CreditAt(each.second, now) >= burst_; });
}

}  // namespace zor::mlogserver
