// What the system counts, as people name it.
#ifndef ZORCTL_FORMAT_H
#define ZORCTL_FORMAT_H

#include <sys/types.h>

#include <ctime>
#include <string>

namespace zor::ctl {

// The name of a user, or the number of one that has no name here.
std::string UserName(uid_t uid);

// "2026-11-21 09:30:00", local time.
std::string TimeText(std::time_t time);

}  // namespace zor::ctl

#endif
