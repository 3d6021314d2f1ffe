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

// Requests of one client that wait for their answers. The library waits for one at a time in each process.
inline constexpr size_t kMaxRequests = 64;

}  // namespace zor::notifyserver

#endif
