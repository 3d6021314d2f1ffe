#include <zor/mlog.h>
#include <zor/paths.h>
#include <zor/platform/bounded.h>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "base/fixed_path.h"
#include "common/socket_address.h"
#include "common/unique_fd.h"

static_assert(sizeof(ZOR_MLOG_MSG) == ZOR_MLOG_HEAD_SIZE + ZOR_MLOG_DATA_MAX);
static_assert(offsetof(ZOR_MLOG_MSG, data) == ZOR_MLOG_HEAD_SIZE);

namespace zor {
namespace {

constexpr char kDirectory[] = ZOR_PATH_MLOG_DIR;
constexpr std::size_t kDirectoryLength = sizeof kDirectory - 1;

// The address of a socket: the directory and the name, or the text itself when it is such a path already.
std::optional<sockaddr_un> AddressOf(const char *name) {
  const bool isPath = std::strncmp(name, kDirectory, kDirectoryLength) == 0;
  char path[sizeof(sockaddr_un::sun_path)];
  if (snprintf_s(path, sizeof path, sizeof path, "%s%s", isPath ? "" : kDirectory, name) < 0) return std::nullopt;
  return FixedSocketAddress(path);
}

// The same for a socket of our own. Its file is removed and made, so the name must not lead out of the directory.
std::optional<sockaddr_un> OwnAddress(const char *name) {
  if (std::strchr(name, '/') != nullptr) return std::nullopt;
  return AddressOf(name);
}

// Stores a sender's path as a destination for mlog_socket_send: without the prefix of fixed paths.
void StoreSender(const sockaddr_un &address, socklen_t addressLength, char *sender, std::uint32_t senderSize) {
  char path[sizeof address.sun_path + 1] = {};
  const std::size_t before = offsetof(sockaddr_un, sun_path);
  if (addressLength > before) {
    std::memcpy(path, address.sun_path, std::min(addressLength - before, sizeof address.sun_path));
  }
  const FixedPath directory(kDirectory);
  const std::size_t prefix = std::strlen(directory.c_str());
  const bool isFixed = prefix > 0 && std::strncmp(path, directory.c_str(), prefix) == 0;
  snprintf_s(sender, senderSize, senderSize, "%s%s", isFixed ? kDirectory : "", isFixed ? path + prefix : path);
}

}  // namespace
}  // namespace zor

int32_t mlog_socket_open(const char *name, int32_t *fd) {
  if (name == nullptr || fd == nullptr) return -1;
  const std::optional<sockaddr_un> address = zor::OwnAddress(name);
  if (!address) return -1;
  zor::UniqueFd opened(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!opened.valid()) return -1;
  ::unlink(address->sun_path);
  if (!zor::Bind(opened.get(), *address)) return -1;
  *fd = opened.release();
  return 0;
}

int32_t mlog_socket_close(int32_t fd, const char *name) {
  if (fd >= 0) ::close(fd);
  if (name == nullptr) return 0;
  if (const std::optional<sockaddr_un> address = zor::OwnAddress(name)) ::unlink(address->sun_path);
  return 0;
}

int32_t mlog_socket_send(int32_t fd, const void *buffer, uint32_t length, const char *destination) {
  if (buffer == nullptr || destination == nullptr) return -1;
  const std::optional<sockaddr_un> address = zor::AddressOf(destination);
  if (!address) return -1;
  ssize_t count;
  do {  // without bound: a line waits for a busy daemon rather than getting lost
    count = ::sendto(fd, buffer, length, MSG_NOSIGNAL, zor::Generic(&*address), sizeof *address);
  } while (count < 0 && (errno == EINTR || errno == EAGAIN));
  return count < 0 ? -1 : 0;
}

int32_t mlog_socket_recvfrom(int32_t fd, void *buffer, uint32_t *length, int32_t timeoutSeconds, char *sender,
                             uint32_t senderSize) {
  if (buffer == nullptr || length == nullptr) return -1;
  const timeval timeout = {std::max(timeoutSeconds, 0), 0};  // all zero waits for ever
  if (::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) return -1;
  sockaddr_un address;
  socklen_t addressLength;
  ssize_t count;
  do {
    addressLength = sizeof address;
    count = ::recvfrom(fd, buffer, sizeof(ZOR_MLOG_MSG), 0, zor::Generic(&address), &addressLength);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    if (errno != EAGAIN) return -1;
    *length = 0;
    return -2;
  }
  *length = static_cast<uint32_t>(count);
  if (sender != nullptr && senderSize > 0) zor::StoreSender(address, addressLength, sender, senderSize);
  return 0;
}

int32_t mlog_send_msg(int32_t fd, const ZOR_MLOG_MSG *msg, const char *destination) {
  if (msg == nullptr || msg->length > ZOR_MLOG_DATA_MAX) return -1;
  return mlog_socket_send(fd, msg, ZOR_MLOG_HEAD_SIZE + msg->length, destination);
}

int32_t mlog_recv_msg(int32_t fd, ZOR_MLOG_MSG *msg, int32_t timeoutSeconds, char *sender, uint32_t senderSize) {
  if (msg == nullptr) return -1;
  *msg = {};
  uint32_t received = 0;
  if (mlog_socket_recvfrom(fd, msg, &received, timeoutSeconds, sender, senderSize) != 0) return -1;
  const bool isWhole =
      received >= ZOR_MLOG_HEAD_SIZE && received == uint64_t{ZOR_MLOG_HEAD_SIZE} + uint64_t{msg->length};
  return isWhole ? 0 : -1;
}

int32_t mlog_send_recv_msg(int32_t fd, const ZOR_MLOG_MSG *request, ZOR_MLOG_MSG *reply, uint32_t /*replySize*/,
                           int32_t timeoutSeconds, const char *destination) {
  if (reply == nullptr || mlog_send_msg(fd, request, destination) != 0) return -1;
  return mlog_recv_msg(fd, reply, timeoutSeconds, nullptr, 0);
}
