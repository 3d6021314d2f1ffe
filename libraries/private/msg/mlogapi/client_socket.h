// A client's socket for the length of a scope: every call of the logger client opens its own.
#ifndef MLOGAPI_CLIENT_SOCKET_H
#define MLOGAPI_CLIENT_SOCKET_H

#include <zor/mlog.h>

#include <cstdint>
#include <utility>

namespace zor {

class ClientSocket {
 public:
  // The name must outlive the socket.
  explicit ClientSocket(const char *name) noexcept : name_(name) {
    if (mlog_socket_open(name, &fd_) != 0) fd_ = -1;
  }
  ClientSocket(const ClientSocket &) = delete;
  ClientSocket &operator=(const ClientSocket &) = delete;
  ~ClientSocket() {
    if (valid()) Close();
  }

  bool valid() const noexcept { return fd_ >= 0; }
  int fd() const noexcept { return fd_; }
  std::int32_t Close() noexcept { return mlog_socket_close(std::exchange(fd_, -1), name_); }

 private:
  const char *name_;
  std::int32_t fd_ = -1;
};

}  // namespace zor

#endif
