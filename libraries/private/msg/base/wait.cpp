#include "base/wait.h"

#include <poll.h>

#include <cerrno>

namespace zor {
namespace {

WaitResult WaitFor(int fd, short events, int timeoutMs) {
  if (fd < 0) {  // poll ignores negative descriptors and would sleep
    errno = EBADF;
    return WaitResult::kFailed;
  }
  pollfd entry = {fd, events, 0};
  const int count = ::poll(&entry, 1, timeoutMs);
  if (count == 0) return WaitResult::kTimedOut;
  if (count < 0) return errno == EINTR || errno == EAGAIN ? WaitResult::kInterrupted : WaitResult::kFailed;
  if ((entry.revents & POLLNVAL) == 0) return WaitResult::kReady;
  errno = EBADF;
  return WaitResult::kFailed;
}

}  // namespace

WaitResult WaitReadable(int fd, int timeoutMs) noexcept {
  return WaitFor(fd, POLLIN, timeoutMs);
}

WaitResult WaitWritable(int fd, int timeoutMs) noexcept {
  return WaitFor(fd, POLLOUT, timeoutMs);
}

}  // namespace zor
