#include <zor/platform/file.h>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/platform/limits.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "common/malloc_ptr.h"
#include "common/unique_fd.h"
#include "common/write_all.h"

namespace {

constexpr size_t kLeastRead = 4095;
constexpr mode_t kNewFileMode = 0640;
constexpr mode_t kOthersWrite = 0002;

// Opens a regular file and nothing else. A pipe would block, and a device is not ours to truncate or remove.
zor::UniqueFd OpenRegular(const char *path, int flags, off_t *size) {
  zor::UniqueFd file(::open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, kNewFileMode));
  struct stat status = {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  *size = status.st_size;
  return file;
}

// The bytes of a file while they are being read: capacity bytes and room for a NUL.
struct Content {
  zor::MallocPtr<char> bytes;
  size_t length = 0;
  size_t capacity = 0;

  bool Grow(size_t size) {
    auto *grown = static_cast<char *>(std::realloc(bytes.get(), size + 1));
    if (grown == nullptr) return false;
    static_cast<void>(bytes.release());  // realloc has freed or moved it
    bytes.reset(grown);
    capacity = size;
    return true;
  }
};

// Reads to the end of the file, whatever size it reported: files of the kernel report none.
uint32_t ReadToEnd(int fd, Content *content) {
  while (content->length <= ZOR_FILE_READ_MAX) {
    if (content->length == content->capacity && !content->Grow(2 * content->capacity)) break;
    const ssize_t step = ::read(fd, content->bytes.get() + content->length, content->capacity - content->length);
    if (step == 0) return ZOR_FILE_OK;
    if (step < 0 && errno != EINTR) return ZOR_FILE_E_IO;
    if (step > 0) content->length += static_cast<size_t>(step);
  }
  return ZOR_FILE_E_NO_MEMORY;
}

}  // namespace

uint32_t ZOR_UTIL_ReadFileToBuf(const char *path, void **buffer, uint32_t *length) {
  if (buffer != nullptr) *buffer = nullptr;
  if (length != nullptr) *length = 0;
  if (path == nullptr || buffer == nullptr || length == nullptr) return ZOR_FILE_E_ARGUMENT;
  off_t announced = 0;
  const zor::UniqueFd file = OpenRegular(path, O_RDONLY, &announced);
  if (!file.valid()) return ZOR_FILE_E_IO;
  if (announced > static_cast<off_t>(ZOR_FILE_READ_MAX)) return ZOR_FILE_E_NO_MEMORY;
  Content content;
  // One byte more than reported, so that the end of the file shows without another block.
  if (!content.Grow(std::max(static_cast<size_t>(announced), kLeastRead) + 1)) return ZOR_FILE_E_NO_MEMORY;
  const uint32_t result = ReadToEnd(file.get(), &content);
  if (result != ZOR_FILE_OK) return result;
  content.bytes.get()[content.length] = '\0';
  *length = static_cast<uint32_t>(content.length);
  *buffer = content.bytes.release();
  return ZOR_FILE_OK;
}

char *ZOR_UTIL_StrFileToBuf(const char *path) {
  void *text = nullptr;
  uint32_t length = 0;
  ZOR_UTIL_ReadFileToBuf(path, &text, &length);
  return static_cast<char *>(text);
}

uint32_t ZOR_UTIL_WriteBufToFile(const char *path, const void *buffer, uint32_t length) {
  if (path == nullptr || (buffer == nullptr && length != 0)) return ZOR_FILE_E_ARGUMENT;
  off_t ignored = 0;
  zor::UniqueFd file = OpenRegular(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, &ignored);
  if (!file.valid()) return ZOR_FILE_E_IO;
  const bool written = zor::WriteAll(file.get(), {static_cast<const std::byte *>(buffer), length});
  if (::close(file.release()) == 0 && written) return ZOR_FILE_OK;
  ::unlink(path);
  return ZOR_FILE_E_IO;
}

uint32_t ZOR_UTIL_RemoveAndroidWPerm(const char *path, const char *mode) {
  if (path == nullptr || mode == nullptr || *mode == '\0') return ZOR_FILE_E_ARGUMENT;
  char *end = nullptr;
  const unsigned long bits = std::strtoul(mode, &end, 8);
  if (*end != '\0' || bits > 07777) return ZOR_FILE_E_ARGUMENT;
  return ::chmod(path, static_cast<mode_t>(bits) & ~kOthersWrite) == 0 ? ZOR_FILE_OK : ZOR_FILE_E_IO;
}

uint32_t ZOR_UTIL_ChangeFileUGid(const char *path, const char *account) {
  if (path == nullptr || account == nullptr) return ZOR_FILE_E_ARGUMENT;
  const struct passwd *owner = ::getpwnam(account);
  if (owner == nullptr) return ZOR_FILE_E_NO_ACCOUNT;
  return ::lchown(path, owner->pw_uid, owner->pw_gid) == 0 ? ZOR_FILE_OK : ZOR_FILE_E_IO;
}
