// The socket that a client wants its reply at.
//
// Its address is a path that the client chose, and any user can put a link there, or the socket of somebody else, after
// the request was sent. So the path is opened once, without following a link, and what was opened is checked and then
// written to, whatever becomes of the path: the kernel takes the descriptor's entry in /proc for an address.
#ifndef MLOGSERVER_CLIENT_SOCKET_H
#define MLOGSERVER_CLIENT_SOCKET_H

#include <sys/types.h>
#include <sys/un.h>

#include <string>

#include "common/unique_fd.h"

namespace zor::mlogserver {

class ClientSocket {
 public:
  // The socket at a real path. It must be directly in the directory, which ends in a slash, and belong to the user.
  ClientSocket(const std::string &path, const std::string &directory, uid_t user);

  bool valid() const { return refusal_ == nullptr && entry_.valid(); }
  // Why no reply may be sent there; null if one may, or if the client has gone.
  const char *refusal() const { return refusal_; }
  // Stays good as long as the object.
  sockaddr_un Address() const;

  // Whether the kernel can be given such addresses at all.
  static bool IsSupported();

 private:
  const char *refusal_ = nullptr;
  UniqueFd entry_;
};

}  // namespace zor::mlogserver

#endif
