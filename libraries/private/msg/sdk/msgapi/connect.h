// Sockets that are connected to a message server: the local one, or one on another board.
#ifndef SDK_MSGAPI_CONNECT_H
#define SDK_MSGAPI_CONNECT_H

#include <cstdint>
#include <optional>

#include "common/unique_fd.h"

namespace zor {

// Invalid when there is no server; else it is the one that ConnectAgain finds.
UniqueFd ConnectLocal() noexcept;
UniqueFd ConnectRemote(const char *ipv4Text, std::uint16_t port) noexcept;

bool IsRemote() noexcept;

// To the same server as before, with a non-blocking socket. A local server that does not keep up with its callers
// counts as none; a remote one may still be connecting, which IsConnecting sees.
UniqueFd ConnectAgain() noexcept;

// Whether the socket is not connected yet; nothing if it will never be.
std::optional<bool> IsConnecting(int fd) noexcept;

// A board may lose its power or its cable without a word: from now on the connection ends when it is silent for long.
void EndWhenSilent(int fd) noexcept;

}  // namespace zor

#endif
