// Records of the system log as what the fleet receives.
#ifndef ZORBRIDGE_LOG_TEXT_H
#define ZORBRIDGE_LOG_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zor::bridge {

// A record that the log daemon has kept: the body of a ZOR_LOG_MSG_COPY.
struct LogCopy {
  uint64_t time;       // seconds since 1970
  uint32_t typeLevel;  // passes a filter when it has one of its types and one of its levels
  uint32_t index;
  std::string text;
};

// None for a body that is too short.
std::optional<LogCopy> ParseLogCopy(std::string_view body);

// JSON members without braces.
std::string TextOfLog(const LogCopy &copy);

}  // namespace zor::bridge

#endif
