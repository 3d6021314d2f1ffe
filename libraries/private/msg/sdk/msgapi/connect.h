// Sockets that are connected to a message server.
#ifndef SDK_MSGAPI_CONNECT_H
#define SDK_MSGAPI_CONNECT_H

#include <cstdint>

#include "common/unique_fd.h"

namespace zor {

// To the local server; invalid when there is none. Flags are those of socket(): with SOCK_NONBLOCK a server that does
// not keep up with its callers counts as none.
UniqueFd ConnectLocal(int flags) noexcept;

// To the server of another board.
UniqueFd ConnectRemote(const char *ipv4Text, std::uint16_t port) noexcept;

}  // namespace zor

#endif
