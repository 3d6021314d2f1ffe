// The one call of the bus upward in the layers: events that no handler took go to the event client, which stands on the
// bus. It registers its procedure with its first callback; before that nothing waits for events, and they are dropped.
#ifndef SDK_MSGAPI_EVENT_HOOK_H
#define SDK_MSGAPI_EVENT_HOOK_H

#include <zor/msg_wire.h>

namespace zor {

using EventProc = void (*)(ZOR_MSG_HEAD *msg);

void SetEventProc(EventProc proc) noexcept;

}  // namespace zor

#endif
