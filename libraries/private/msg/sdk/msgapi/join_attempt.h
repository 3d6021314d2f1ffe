// One attempt to register with the server over a connection of its own, beside the one that has ended. It never waits:
// the loop reads the reply, in as many pieces as it comes.
#ifndef SDK_MSGAPI_JOIN_ATTEMPT_H
#define SDK_MSGAPI_JOIN_ATTEMPT_H

#include "common/unique_fd.h"
#include "message/context.h"

namespace zor {

// Called once at the end of an attempt: the registered connection and the reply, or null when it has failed.
using JoinDone = void (*)(UniqueFd fd, MessagePtr reply) noexcept;

// False when there is no server, or no memory: nothing will be called then. At most one attempt at a time.
bool StartJoin(JoinDone done) noexcept;

bool IsJoining() noexcept;

// Ends an attempt without calling anything.
void CancelJoin() noexcept;

}  // namespace zor

#endif
