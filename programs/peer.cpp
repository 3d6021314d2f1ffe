#include "programs/peer.h"

#include <unistd.h>

namespace zor::daemon {
namespace {

int OptionOf(int socket, int option) {
  int value = -1;
  socklen_t size = sizeof value;
  return ::getsockopt(socket, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

}  // namespace

ucred PeerOf(int socket) {
  ucred credentials = {};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0) return credentials;
  return {0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
}

bool IsOperator(uid_t user) {
  return user == 0 || user == ::geteuid();
}

bool IsConnection(int socket, int domain) {
  return OptionOf(socket, SO_TYPE) == SOCK_STREAM && OptionOf(socket, SO_ACCEPTCONN) == 0 &&
         OptionOf(socket, SO_DOMAIN) == domain;
}

}  // namespace zor::daemon
