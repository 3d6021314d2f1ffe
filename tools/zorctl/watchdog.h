// A limit to calls of the library that wait without one.
#ifndef ZORCTL_WATCHDOG_H
#define ZORCTL_WATCHDOG_H

#include "zorctl/deadline.h"

namespace zor::ctl {

// Ends the process with kExitTimeOver and a line on standard error when a call of the library blocks beyond a deadline:
// some of them wait without a limit, most often for the message server. One at a time.
class Watchdog {
 public:
  static constexpr char kServerStuck[] =
      "zorctl: the message server does not accept messages; check whether it is stopped, or increase --timeout\n";

  explicit Watchdog(const Deadline &deadline, const char *line = kServerStuck);
  ~Watchdog();
  Watchdog(const Watchdog &) = delete;
  Watchdog &operator=(const Watchdog &) = delete;
};

}  // namespace zor::ctl

#endif
