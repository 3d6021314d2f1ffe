// The statuses of zor/status.h for users.
#ifndef PROGRAMS_MESSAGES_STATUS_TEXT_H
#define PROGRAMS_MESSAGES_STATUS_TEXT_H

#include <cstdint>
#include <span>
#include <string_view>

namespace zor::messages {

struct Status {
  uint32_t status;
  std::string_view name;  // of the macro
  std::string_view text;  // "argument error"
};

// All except success.
std::span<const Status> Statuses();

// Empty for success and for other numbers.
std::string_view StatusText(uint64_t number);

}  // namespace zor::messages

#endif
