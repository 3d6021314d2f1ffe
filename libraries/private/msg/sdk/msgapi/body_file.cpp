#include "sdk/msgapi/body_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/paths.h>
#include <zor/platform/file.h>
#include <zor/platform/system.h>
#include <zor/status.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/fixed_path.h"
#include "common/unique_fd.h"
#include "message/header.h"

namespace zor {
namespace {

using PathText = char[ZOR_MSG_FILE_PATH_SIZE + 1];

// The C library returns large blocks to the system as they are freed, and fresh pages for each long body cost more than
// the rest of its transfer. Once a block of this size has been freed it keeps the pages of smaller ones.
void KeepPagesOfLongBodies() {
  constexpr std::uint64_t kKeptBlockSize = 0x100000;
  static bool done = false;
  if (!std::exchange(done, true)) MallocPtr<void>(GuardedAlloc(kKeptBlockSize)).reset();
}

// The path in a message's body, which need be neither complete nor terminated.
void CopyPath(const ZOR_MSG_HEAD &msg, PathText &path) {
  const std::size_t length = std::min(msg.bodyLength, ZOR_MSG_FILE_PATH_SIZE);
  std::memcpy(path, BodyOf(&msg), length);
  path[length] = '\0';
}

// Without this check any sender could make a privileged daemon read and delete any file.
bool IsMessageFile(std::string_view path) {
  constexpr std::string_view directory = ZOR_PATH_MSG_FILE_DIR;
  return path.starts_with(directory) && path.find('/', directory.size()) == std::string_view::npos;
}

// Opens a regular file; its size goes to size. Non-blocking, because opening a FIFO would wait for its writer.
UniqueFd OpenRegular(const char *path, std::uint64_t &size) {
  UniqueFd file(::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return UniqueFd();
  size = static_cast<std::uint64_t>(status.st_size);
  return file;
}

// Reads up to length bytes; below 0 on an error.
ssize_t ReadUpTo(int fd, char *to, std::size_t length) {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t count = ::read(fd, to + done, length - done);
    if (count == 0) break;
    if (count > 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return static_cast<ssize_t>(done);
}

}  // namespace

std::uint32_t MoveBodyToFile(const ZOR_MSG_HEAD &header, const void *body, MessagePtr &block) noexcept {
  KeepPagesOfLongBodies();
  PathText path = {};
  std::snprintf(path, sizeof path, ZOR_PATH_MSG_FILE_FORMAT, ZOR_UTIL_GenRandomInteger());
  if (ZOR_UTIL_WriteBufToFile(FixedPath(path).c_str(), body, header.bodyLength) != ZOR_FILE_OK) {
    std::puts("\n----------------msg write file failed--------------------");
    return ZOR_E_BODY_FILE;
  }
  block = NewMessageBlock(ZOR_MSG_FILE_PATH_SIZE);
  if (block == nullptr) return ZOR_E_NOT_WRITABLE;
  *block = header;
  block->type |= ZOR_MSG_BODY_IN_FILE;
  block->bodyLength = ZOR_MSG_FILE_PATH_SIZE;
  std::memcpy(BodyOf(block.get()), path, ZOR_MSG_FILE_PATH_SIZE);
  return ZOR_OK;
}

void RemoveBodyFile(const ZOR_MSG_HEAD &block) noexcept {
  PathText path;
  CopyPath(block, path);
  ::unlink(FixedPath(path).c_str());
}

std::uint32_t RestoreFileBody(MessagePtr &msg) noexcept {
  MessagePtr arrived = std::move(msg);
  PathText path;
  CopyPath(*arrived, path);
  if (!IsMessageFile(path)) return ZOR_E_IO;
  const FixedPath place(path);
  std::uint64_t size = 0;
  const UniqueFd file = OpenRegular(place.c_str(), size);
  if (!file.valid()) return ZOR_E_IO;
  KeepPagesOfLongBodies();
  // Read straight into the message: a large body is copied once only.
  MessagePtr whole = GuardedGrow(std::move(arrived), ZOR_MSG_HEAD_SIZE, ZOR_MSG_HEAD_SIZE + size);
  const ssize_t length =
      whole == nullptr ? 0 : ReadUpTo(file.get(), static_cast<char *>(BodyOf(whole.get())), static_cast<size_t>(size));
  if (length < 0) return ZOR_E_IO;
  ::unlink(place.c_str());
  if (whole == nullptr) return ZOR_E_NO_MEMORY;
  whole->bodyLength = static_cast<std::uint32_t>(length);
  msg = std::move(whole);
  return ZOR_OK;
}

}  // namespace zor
