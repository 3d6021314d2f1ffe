// Sockets that are connected to the notification server.
#ifndef NOTIFYCLIENT_NOTIFY_CONNECT_H
#define NOTIFYCLIENT_NOTIFY_CONNECT_H

#include "common/unique_fd.h"

namespace zor::notify {

// A socket bound to the path of this process, or an invalid descriptor.
UniqueFd BoundSocket() noexcept;

// errno says why it failed. A server that does not keep up with its callers is waited for.
bool ConnectToServer(int fd) noexcept;

// The same in one step and without waiting.
UniqueFd ConnectAtOnce() noexcept;

}  // namespace zor::notify

#endif
