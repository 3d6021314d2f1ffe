// The process at the other end of a local socket.
#ifndef PROGRAMS_PEER_H
#define PROGRAMS_PEER_H

#include <sys/socket.h>

namespace zor::daemon {

// As reported by the kernel; process 0 and user -1, which is no user, if it does not know.
ucred PeerOf(int socket);

// Whether the peer's user may inspect and configure the server: root and the server's own user.
bool IsOperator(uid_t user);

// Whether it is a stream socket that a listener of that domain has accepted, or one like it.
bool IsConnection(int socket, int domain);

}  // namespace zor::daemon

#endif
