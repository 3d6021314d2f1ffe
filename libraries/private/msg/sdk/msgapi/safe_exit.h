// The exit request, for the daemons that leave it to the bus.
#ifndef SDK_MSGAPI_SAFE_EXIT_H
#define SDK_MSGAPI_SAFE_EXIT_H

#include <zor/msg_wire.h>

namespace zor {

// Whether the message is an exit request to one of the daemons that may be terminated at any point.
bool IsSafeExitRequest(const ZOR_MSG_HEAD &msg) noexcept;

// Acknowledges the request and ends the process.
[[noreturn]] void SafeExit(ZOR_MSG_HEAD &request) noexcept;

}  // namespace zor

#endif
