// Numbers of the system and the bus as text for users.
#ifndef ZORCTL_FORMAT_H
#define ZORCTL_FORMAT_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace zor::ctl {

// The name of a user, or the number of one without a name on this machine.
std::string UserName(uid_t uid);

// "2026-11-21 09:30:00", local time.
std::string LocalTimeText(std::time_t time);

// A duration with one decimal: "12.3 s".
std::string AgeText(uint64_t milliseconds);

// A number as message types are written: "0x4001".
std::string HexText(uint32_t number);

}  // namespace zor::ctl

#endif
