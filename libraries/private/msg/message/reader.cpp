#include "message/reader.h"

#include <unistd.h>
#include <zor/limits.h>
#include <zor/status.h>

#include <cerrno>
#include <cstdio>

namespace zor {
namespace {

constexpr std::size_t kDescriptorFrameLength = 2;

}  // namespace

std::uint32_t MessageReader::ReadHeaderAtOnce() noexcept {
  bool descriptor = false;
  const ssize_t count = ReadOnce(fd_, message_.get(), rules_.headerLength, descriptor);
  if (count <= 0) return StatusOfFailedRead(count);
  if (count == static_cast<ssize_t>(rules_.headerLength)) return ZOR_OK;
  torn_ = !descriptor || count != static_cast<ssize_t>(kDescriptorFrameLength);
  const int error = errno;
  std::printf("msgapi fail to read for not a head length, ret=%d, errno=%d, fd=%d, pid=%d\n", static_cast<int>(count),
              error, fd_, ::getpid());
  return ZOR_E_IO;
}

std::uint32_t MessageReader::ReadHeader() noexcept {
  length_ = rules_.headerLength;
  message_.reset(static_cast<ZOR_MSG_HEAD *>(GuardedCalloc(length_)));
  if (message_ == nullptr) return ZOR_E_NO_MEMORY;
  if (!rules_.headerInPieces) return ReadHeaderAtOnce();
  std::size_t missing = length_;
  bool descriptor = false;
  const std::uint32_t status = ReadExactly(fd_, message_.get(), missing, rules_.headerWaits, descriptor);
  const std::size_t taken = length_ - missing;
  torn_ = status != ZOR_OK && taken > 0 && !(descriptor && taken == kDescriptorFrameLength);
  return status;
}

// A payload that is refused stays on the descriptor and is read as headers from then on.
std::uint32_t MessageReader::ReadPayload(std::uint32_t length) noexcept {
  if (length == 0) return ZOR_OK;
  torn_ = true;
  if (length > ZOR_MSG_RECV_BODY_MAX) return ZOR_E_NO_MEMORY;
  const std::size_t headerLength = length_;
  length_ += length;
  message_ = GuardedGrow(std::move(message_), headerLength, length_);
  if (message_ == nullptr) return ZOR_E_NO_MEMORY;
  char *payload = reinterpret_cast<char *>(message_.get()) + headerLength;
  std::size_t missing = length;
  bool descriptor = false;
  const std::uint32_t status = ReadExactly(fd_, payload, missing, rules_.payloadWaits, descriptor);
  torn_ = status != ZOR_OK;
  return status;
}

}  // namespace zor
