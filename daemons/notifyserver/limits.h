// What one client may make the server hold.
#ifndef NOTIFYSERVER_LIMITS_H
#define NOTIFYSERVER_LIMITS_H

#include <cstddef>

namespace zor::notifyserver {

struct Limits {
  size_t maxClients;
  size_t maxDataBytes;  // of one notification
  size_t queueBytes;    // of output that a client has not read
};

}  // namespace zor::notifyserver

#endif
