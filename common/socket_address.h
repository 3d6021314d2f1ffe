// Socket addresses of any family, as the system calls take them.
#ifndef COMMON_SOCKET_ADDRESS_H
#define COMMON_SOCKET_ADDRESS_H

#include <sys/socket.h>

#include <cerrno>

namespace zor {

template <class Address>
const sockaddr *Generic(const Address *address) noexcept {
  return reinterpret_cast<const sockaddr *>(address);
}

template <class Address>
sockaddr *Generic(Address *address) noexcept {
  return reinterpret_cast<sockaddr *>(address);
}

// Both return false, with errno, on failure.
template <class Address>
bool Bind(int fd, const Address &address) noexcept {
  return ::bind(fd, Generic(&address), sizeof address) == 0;
}

template <class Address>
bool Connect(int fd, const Address &address) noexcept {
  int result;
  do {
    result = ::connect(fd, Generic(&address), sizeof address);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace zor

#endif
