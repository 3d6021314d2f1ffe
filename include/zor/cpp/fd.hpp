// A descriptor with an owner.
#ifndef ZOR_CPP_FD_HPP
#define ZOR_CPP_FD_HPP

#include <unistd.h>

#include <utility>

namespace zor {
inline namespace face {

/// Owns a descriptor and closes it. Negative: none.
class Fd {
 public:
  Fd() noexcept = default;
  explicit Fd(int fd) noexcept : fd_(fd) {}
  Fd(Fd &&other) noexcept : fd_(other.release()) {}
  Fd &operator=(Fd &&other) noexcept {
    reset(other.release());
    return *this;
  }
  ~Fd() { reset(); }

  int get() const noexcept { return fd_; }
  explicit operator bool() const noexcept { return fd_ >= 0; }
  /// Gives the descriptor away without closing it.
  int release() noexcept { return std::exchange(fd_, -1); }
  void reset(int fd = -1) noexcept {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace face
}  // namespace zor

#endif
