// Times as text.
#ifndef PROGRAMS_FORMAT_TIME_H
#define PROGRAMS_FORMAT_TIME_H

#include <ctime>
#include <string>

namespace zor::daemon {

// A time as strftime formats it, at most 63 characters. toParts is localtime_r or gmtime_r; "-" for a time that it
// cannot represent.
std::string FormatTime(std::time_t time, const char *format, std::tm *(*toParts)(const std::time_t *, std::tm *));

}  // namespace zor::daemon

#endif
