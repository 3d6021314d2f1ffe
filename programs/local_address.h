// Addresses of local sockets.
#ifndef PROGRAMS_LOCAL_ADDRESS_H
#define PROGRAMS_LOCAL_ADDRESS_H

#include <sys/un.h>

#include <optional>
#include <string>

namespace zor::daemon {

// The address of a path. Nothing, with errno, when the path is empty or too long: one that is cut leads elsewhere.
std::optional<sockaddr_un> LocalAddress(const std::string &path);

// The path that a socket is bound to; empty if there is none.
std::string PathOf(int socket);

// Whether some process still holds the socket at the address.
bool SomebodyListens(const sockaddr_un &address, int type);

}  // namespace zor::daemon

#endif
