// The messages that were set aside while a synchronous call waited for its reply.
#ifndef SDK_MSGAPI_QUEUE_H
#define SDK_MSGAPI_QUEUE_H

#include <zor/uv_io.h>

#include <cstdint>

namespace zor {

// Idle callback: dispatches the pending messages of the bus context in arrival order, until there are none.
void DrainPending(UvIdle *idle, std::uint32_t flags);

}  // namespace zor

#endif
