// How many lines each user may write: so many at once, then so many a second. Further ones are left out and counted, so
// that no user pushes the lines of others out of the circular file unseen.
#ifndef MLOGSERVER_LINE_RATES_H
#define MLOGSERVER_LINE_RATES_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>

namespace zor::mlogserver {

class LineRates {
 public:
  using Clock = std::chrono::steady_clock;

  LineRates(uint32_t burst, uint32_t perSecond) : burst_(burst), perSecond_(perSecond) {}

  // Whether the user may write a line now; if not, the line counts as left out.
  bool Take(uid_t user, Clock::time_point now);

  // Calls `report` for each user with lines left out for a second or longer, or with any if `all`; they count anew
  // once it has returned.
  void Report(Clock::time_point now, bool all, const std::function<void(uid_t user, uint64_t lines)> &report);
  // Milliseconds until one is due; -1 if there is none.
  int TimeoutMs(Clock::time_point now) const;

 private:
  struct Share {
    double credit;
    Clock::time_point refilled;
    uint64_t leftOut = 0;
    Clock::time_point since;  // the first one left out
  };

  Share &ShareOf(uid_t user, Clock::time_point now);
  double CreditAt(const Share &share, Clock::time_point now) const;
  void ForgetIdle(Clock::time_point now);

  double burst_;
  double perSecond_;
  std::map<uid_t, Share> shares_;
};

}  // namespace zor::mlogserver

#endif
