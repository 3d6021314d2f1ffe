// Bounds on the memory that clients take up in the server.
#ifndef NOTIFYSERVER_LIMITS_H
#define NOTIFYSERVER_LIMITS_H

#include <chrono>
#include <cstddef>

namespace zor::notifyserver {

struct Limits {
  size_t maxClients;
  size_t userClients;                 // connections of one user
  size_t maxDataBytes;                // of one notification
  size_t queueBytes;                  // of unread output of one client
  size_t userBytes;                   // of input and output of one user's clients
  size_t memoryBytes;                 // of all
  std::chrono::seconds registration;  // for a connection to register
  std::chrono::seconds stop;          // for what is queued when the server is stopped
};

}  // namespace zor::notifyserver

#endif
