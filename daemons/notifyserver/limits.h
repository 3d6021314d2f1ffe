// Bounds on the memory that clients take up in the server.
#ifndef NOTIFYSERVER_LIMITS_H
#define NOTIFYSERVER_LIMITS_H

#include <cstddef>

namespace zor::notifyserver {

struct Limits {
  size_t maxClients;
  size_t maxDataBytes;  // of one notification
  size_t queueBytes;    // of unread output of one client
};

}  // namespace zor::notifyserver

#endif
