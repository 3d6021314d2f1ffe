#include "sdk/loop/msg_read.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <zor/limits.h>
#include <zor/status.h>

#include <cerrno>

#include "base/wait.h"

namespace zor {
namespace {

constexpr int kChunkAttempts = 10;

// Takes what is there without waiting. Bytes are nearly always there, so asking first would be a wasted system call.
ssize_t ReadNow(int fd, void *buffer, std::size_t length) {
  const ssize_t count = ::recv(fd, buffer, length, MSG_DONTWAIT);
  if (count >= 0 || errno != ENOTSOCK) return count;
  if (WaitReadable(fd, 0) == WaitResult::kReady) return ::read(fd, buffer, length);
  errno = EAGAIN;
  return -1;
}

// ECONNRESET is not among the signs of a peer that has gone: it means that bytes were lost.
std::uint32_t FailureOf(ssize_t count) {
  return count == 0 || errno == ENOTRECOVERABLE ? ZOR_E_PEER_GONE : ZOR_E_IO;
}

bool Repeatable(ssize_t count) {
  return count < 0 && (errno == EINTR || errno == EAGAIN);
}

}  // namespace

std::uint32_t ReadExactly(int fd, void *buffer, std::size_t length, int firstWaitMs) noexcept {
  if (fd < 0) return ZOR_E_TIMEOUT;
  auto *at = static_cast<char *>(buffer);
  int waitMs = firstWaitMs;
  while (length > 0) {
    const ssize_t count = ReadNow(fd, at, length);
    if (count > 0) {
      at += count;
      length -= static_cast<std::size_t>(count);
      waitMs = ZOR_MSG_NEXT_PIECE_WAIT_MS;
      continue;
    }
    if (!Repeatable(count)) return FailureOf(count);
    if (errno == EAGAIN && WaitReadable(fd, waitMs) == WaitResult::kTimedOut) return ZOR_E_TIMEOUT;
  }
  return ZOR_OK;
}

std::uint32_t ReadChunk(int fd, void *buffer, std::size_t length) noexcept {
  if (fd < 0) return ZOR_E_PEER_GONE;
  const timeval second = {1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);  // fails on what is no socket, which cannot stall
  if (WaitReadable(fd, 0) == WaitResult::kTimedOut) return ZOR_E_TIMEOUT;
  for (int attempt = 0; attempt < kChunkAttempts; ++attempt) {
    const ssize_t count = ::read(fd, buffer, length);
    if (count > 0) return ZOR_OK;
    if (!Repeatable(count)) return FailureOf(count);
  }
  return ZOR_E_TIMEOUT;
}

}  // namespace zor
