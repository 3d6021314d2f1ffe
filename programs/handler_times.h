// Handler times that a daemon offers: see <zor/uv_lag.h>. Nothing in them is trusted.
#ifndef PROGRAMS_HANDLER_TIMES_H
#define PROGRAMS_HANDLER_TIMES_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "common/lag_page.h"

namespace zor::daemon {

// A copy that is sound: of that process, whole, its texts ended, its kinds known. Null if it is not.
std::unique_ptr<const lag::Page> CheckHandlerTimes(std::span<const std::byte> bytes, pid_t pid);

// Those that the process offers. Null if it offers none, and when they cannot be read or are not its own: left behind
// by another process that had its ID, or of another user.
std::unique_ptr<const lag::Page> HandlerTimesOf(pid_t pid, uid_t user);

}  // namespace zor::daemon

#endif
