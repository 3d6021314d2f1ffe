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

}  // namespace zor

#endif
