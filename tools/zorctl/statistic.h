// Statistics that daemons leave with the logging daemon.
#ifndef ZORCTL_STATISTIC_H
#define ZORCTL_STATISTIC_H

#include <string>

#include "zorctl/deadline.h"

namespace zor::ctl {

// The value of a name. Failure (not found) when it is empty: the daemon answers so for a name that nobody has set.
std::string AskStatistic(const std::string &name, const Deadline &deadline);

}  // namespace zor::ctl

#endif
