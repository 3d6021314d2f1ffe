// The message watcher: reads whole messages from a descriptor of the loop and hands each one to the request that waits
// for it, or else to the watcher's default handler.
#ifndef SDK_LOOP_MESSAGE_MSG_WATCHER_H
#define SDK_LOOP_MESSAGE_MSG_WATCHER_H

#include <zor/uv_io.h>

#include <cstdint>

namespace zor {

// What every message watcher does for a readable descriptor: reads one message, dispatches it and frees it.
// Returns 0 after a dispatch; handlers may have deleted the watcher by then. Any other status says why nothing was
// dispatched, and the watcher is as it was: ZOR_E_PEER_GONE at the end of file, ZOR_E_TIMEOUT when nothing more came,
// ZOR_E_NO_MEMORY for a message that is too large, ZOR_E_IO for other errors. A watcher of an owner that acts on
// these installs an ioCallback of its own around this function. torn is set when a part of the message was taken: what
// follows does not begin with a header.
std::uint32_t ReadAndDispatchMessage(UvMsgWatcher &watcher, bool &torn) noexcept;

// Ends the requests that wait now: their callbacks get the status and no message, in their order. To be called from a
// callback of the watcher, which a reply callback may delete.
void EndPendingReplies(UvMsgWatcher &watcher, std::uint32_t status) noexcept;

}  // namespace zor

#endif
