#include "base/stream_read.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <zor/status.h>

#include <cerrno>

#include "base/wait.h"

namespace zor {
namespace {

constexpr int kChunkAttempts = 10;

// As recv(2). Without room for a descriptor the kernel closes it, and says so.
ssize_t Receive(int fd, void *buffer, std::size_t length, int flags, bool &descriptor) {
  iovec data = {buffer, length};
  msghdr message = {};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  const ssize_t count = ::recvmsg(fd, &message, flags);
  descriptor = count > 0 && (message.msg_flags & MSG_CTRUNC) != 0;
  return count;
}

// Takes what is there without waiting.
ssize_t ReadNow(int fd, void *buffer, std::size_t length, bool &descriptor) {
  const ssize_t count = Receive(fd, buffer, length, MSG_DONTWAIT, descriptor);
  if (count >= 0 || errno != ENOTSOCK) return count;
  if (WaitReadable(fd, 0) == WaitResult::kReady) return ::read(fd, buffer, length);
  errno = EAGAIN;
  return -1;
}

bool Repeatable(ssize_t count) {
  return count < 0 && (errno == EINTR || errno == EAGAIN);
}

}  // namespace

std::uint32_t StatusOfFailedRead(ssize_t count) noexcept {
  return count == 0 || errno == ENOTRECOVERABLE ? ZOR_E_PEER_GONE : ZOR_E_IO;
}

std::uint32_t ReadExactly(int fd, void *buffer, std::size_t &length, ReadWaits waits, bool &descriptor) noexcept {
  descriptor = false;
  if (fd < 0) return ZOR_E_TIMEOUT;
  auto *at = static_cast<char *>(buffer);
  int waitMs = waits.firstMs;
  while (length > 0) {
    const ssize_t count = ReadNow(fd, at, length, descriptor);
    if (count > 0) {
      at += count;
      length -= static_cast<std::size_t>(count);
      if (descriptor) return ZOR_E_IO;
      waitMs = waits.laterMs;
      continue;
    }
    if (!Repeatable(count)) return StatusOfFailedRead(count);
    if (errno == EAGAIN && WaitReadable(fd, waitMs) == WaitResult::kTimedOut) return ZOR_E_TIMEOUT;
  }
  return ZOR_OK;
}

ssize_t ReadOnce(int fd, void *buffer, std::size_t length, bool &descriptor) noexcept {
  for (;;) {
    ssize_t count = Receive(fd, buffer, length, 0, descriptor);
    if (count < 0 && errno == ENOTSOCK) count = ::read(fd, buffer, length);
    if (!Repeatable(count)) return count;
    if (errno == EAGAIN) WaitReadable(fd, -1);  // a descriptor in non-blocking mode is not asked again at once
  }
}

std::uint32_t ReadChunk(int fd, void *buffer, std::size_t length) noexcept {
  if (fd < 0) return ZOR_E_PEER_GONE;
  const timeval second = {1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);  // fails on what is no socket, which cannot stall
  if (WaitReadable(fd, 0) == WaitResult::kTimedOut) return ZOR_E_TIMEOUT;
  for (int attempt = 0; attempt < kChunkAttempts; ++attempt) {
    const ssize_t count = ::read(fd, buffer, length);
    if (count > 0) return ZOR_OK;
    if (!Repeatable(count)) return StatusOfFailedRead(count);
  }
  return ZOR_E_TIMEOUT;
}

}  // namespace zor
