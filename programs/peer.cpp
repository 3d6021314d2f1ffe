#include "programs/peer.h"

#include <unistd.h>

namespace zor::daemon {

ucred PeerOf(int socket) {
  ucred credentials = {};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0) return credentials;
  return {0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
}

bool IsOperator(uid_t user) {
  return user == 0 || user == ::geteuid();
}

}  // namespace zor::daemon
