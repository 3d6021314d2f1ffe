// Standing requests: what the server keeps for this process and forgets when the connection ends, which is event
// subscriptions, for itself and for others, and restful patterns. They are recorded where messages are sent, whichever
// function built them, and repeated over a new connection.
#ifndef SDK_MSGAPI_STANDING_H
#define SDK_MSGAPI_STANDING_H

#include <zor/msg_wire.h>

#include <cstdint>

namespace zor {

// Records a message that was sent to the server if it makes or cancels a standing request; ignores all others.
void NoteSent(const ZOR_MSG_HEAD &header, const void *body) noexcept;

// Sends all standing requests in the order in which they were made. Returns the status of the first send that fails.
std::uint32_t RepeatStanding(int fd) noexcept;

void ForgetStanding() noexcept;

}  // namespace zor

#endif
