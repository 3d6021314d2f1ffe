// What happens when the connection has ended: the daemon is notified, and the bus is joined again.
//
// The context stays as it is until the name is back: its socket is the one that has ended, so that sends report the
// loss without knowing about rejoining. Attempts use connections of their own. The new connection then replaces the old
// one, with the same descriptor number and watcher, after all standing requests have been repeated over it.
#ifndef SDK_MSGAPI_REJOIN_H
#define SDK_MSGAPI_REJOIN_H

#include <zor/uv_io.h>

namespace zor {

// The watcher of the bus has read the end of its connection, and reads no more. Called from its callback.
void OnConnectionEnded(UvMsgWatcher &watcher) noexcept;

// A message was torn on this descriptor, by a failed read or write: when it is that of a connection that is made again,
// ends the connection, so that pieces are not taken for messages. The loop notices as always.
void AbandonStream(int fd) noexcept;

// Ends attempts and forgets procedure and settings.
void StopRejoin() noexcept;

}  // namespace zor

#endif
