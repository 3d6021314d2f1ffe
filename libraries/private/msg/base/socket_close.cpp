#include <zor/socket.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

int32_t ZOR_UTIL_SocketClose(int32_t fd) {
  if (fd < 0) return 0;
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  ::shutdown(fd, SHUT_RDWR);
  int32_t result;
  do {
    result = ::close(fd);
  } while (result != 0 && errno == EINTR);
  return result;
}
