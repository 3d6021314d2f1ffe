// Where a fixed path is opened on this system.
#ifndef BASE_FIXED_PATH_H
#define BASE_FIXED_PATH_H

#include <sys/un.h>

#include <climits>
#include <optional>

namespace zor {

class FixedPath {
 public:
  explicit FixedPath(const char *path) noexcept;
  // False when the path does not fit; c_str() is then empty and opens nothing.
  bool valid() const noexcept { return text_[0] != '\0'; }
  const char *c_str() const noexcept { return text_; }

 private:
  char text_[PATH_MAX];
};

// The address of a local socket at a fixed path; none when the path does not fit into an address.
std::optional<sockaddr_un> FixedSocketAddress(const char *path) noexcept;

// Binds a socket of this process's own, in place of what a former process has left there. In a directory that users
// share, a name that another of them has taken stays theirs; the socket then has none, which is enough to send and to
// connect. False, with errno, on any other failure.
bool BindOwn(int fd, const sockaddr_un &address) noexcept;

}  // namespace zor

#endif
