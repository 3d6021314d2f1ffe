// The listening socket for daemons on other boards.
#ifndef PROGRAMS_TCP_LISTENER_H
#define PROGRAMS_TCP_LISTENER_H

#include <netinet/in.h>

#include <optional>
#include <string>

#include "common/unique_fd.h"

namespace zor::daemon {

struct TcpListener {
  UniqueFd socket;
  std::string address;  // ADDRESS:PORT with the real port
};

// An IPv4 ADDRESS:PORT; nothing for any other text.
std::optional<sockaddr_in> ParseTcpAddress(const std::string &text);

// Whether only this machine reaches it.
bool IsLoopback(const sockaddr_in &address);

// ADDRESS:PORT.
std::string TextOf(const sockaddr_in &address);

// Whether that is possible, without any effect; errno says why not.
bool CanListenTcp(const std::string &address);

// Whether the socket is bound to the address that the text asks for.
bool ListensAt(int socket, const std::string &text);

// One that another process has made.
TcpListener AdoptTcp(UniqueFd socket);

// Listens on an IPv4 ADDRESS:PORT. On failure the socket is invalid and errno says why.
TcpListener ListenTcp(const std::string &address);

}  // namespace zor::daemon

#endif
