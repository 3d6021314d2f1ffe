// Hands received messages to the handlers, from the loop and from the queue of what came in while a request waited.
#ifndef NOTIFYCLIENT_NOTIFY_DISPATCH_H
#define NOTIFYCLIENT_NOTIFY_DISPATCH_H

#include <zor/sockbase.h>
#include <zor/uv_io.h>

namespace zor::notify {

// The connection is readable: receives one message and dispatches it.
void OnReadable(SockBase *sockBase, uint32_t event) noexcept;

// The idle hook: dispatches every pending message in arrival order.
void DrainPending(UvIdle *hook, uint32_t flags) noexcept;

}  // namespace zor::notify

#endif
