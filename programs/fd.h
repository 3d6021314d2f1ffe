// Owns a descriptor.
#ifndef COMMON_FD_H
#define COMMON_FD_H

#include <unistd.h>

#include <utility>

namespace zor::daemon {

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
  bool valid() const noexcept { return fd_ >= 0; }
  int release() noexcept { return std::exchange(fd_, -1); }
  void reset(int fd = -1) noexcept {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace zor::daemon

#endif
