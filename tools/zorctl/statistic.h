// Statistics that daemons store in the logging daemon.
#ifndef ZORCTL_STATISTIC_H
#define ZORCTL_STATISTIC_H

#include <string>

#include "zorctl/deadline.h"

namespace zor::ctl {

// The value of a name. Failure (not found) if it is empty, which is the daemon's reply for a name without a value.
std::string AskStatistic(const std::string &name, const Deadline &deadline);

}  // namespace zor::ctl

#endif
