// Numbers of the system and the bus as text for users.
#ifndef ZORCTL_FORMAT_H
#define ZORCTL_FORMAT_H

#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <string>

#include "programs/format_number.h"

namespace zor::ctl {

// The name of a user, or the number of one without a name on this machine.
std::string UserName(uid_t uid);

// "2026-11-21 09:30:00", local time.
std::string LocalTimeText(std::time_t time);

// "12.0 s", "7 min", "3 h", "20 d".
std::string LongAgeText(std::chrono::milliseconds age);

using daemon::AgeText;
using daemon::HexText;

}  // namespace zor::ctl

#endif
