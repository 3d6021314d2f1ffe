// The way from the gateway's tunnel to the message server.
#ifndef ZORTUNNEL_MESSAGE_SERVER_H
#define ZORTUNNEL_MESSAGE_SERVER_H

#include <netinet/in.h>

#include <string>

#include "common/unique_fd.h"

namespace zor::tunnel {

// Connects to the message server's socket at a fixed path and says which board that is, from which address. Invalid,
// with errno, on failure. Does not wait.
UniqueFd ConnectToMessageServer(const std::string &fixedPath, const std::string &board, const sockaddr_in &from);

}  // namespace zor::tunnel

#endif
