// The local socket at which the tunnel hands over daemons on other boards. Who may connect there is believed, so its
// directory admits only the tunnel's user. The lock of the server's own socket keeps two servers apart here too.
#ifndef MSGSVR_BOARDS_SOCKET_H
#define MSGSVR_BOARDS_SOCKET_H

#include <string>

#include "common/unique_fd.h"

namespace zor::msgsvr {

// Listens at a fixed path, in the place of a socket that no process holds any more. Invalid, with errno, on failure.
UniqueFd ListenForTunnel(const std::string &fixedPath);

// Whether that is possible, without any effect; errno says why not.
bool CanListenForTunnel(const std::string &fixedPath);

// Whether the socket is bound to the path, and its file is there.
bool ListensAt(int socket, const std::string &fixedPath);

}  // namespace zor::msgsvr

#endif
