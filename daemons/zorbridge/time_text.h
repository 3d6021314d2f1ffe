// Times as the fleet's messages have them.
#ifndef ZORBRIDGE_TIME_TEXT_H
#define ZORBRIDGE_TIME_TEXT_H

#include <cstdint>
#include <string>

namespace zor::bridge {

// Milliseconds since 1970.
std::int64_t UnixMs();
// RFC 3339 in UTC with milliseconds: 2026-01-31T23:59:59.999Z.
std::string TimeText(std::int64_t unixMs);

}  // namespace zor::bridge

#endif
