#include <zor/platform/file.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

namespace {

constexpr off_t kReadMax = 0x8000000;
constexpr mode_t kNewFileMode = 0640;
constexpr mode_t kOthersWrite = 0002;

class File {
 public:
  explicit File(int fd) : fd_(fd) {}
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  ~File() {
    if (fd_ >= 0) ::close(fd_);
  }
  int fd() const { return fd_; }
  bool Close() { return ::close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

struct FreeDeleter {
  void operator()(char *block) const { std::free(block); }
};
using Block = std::unique_ptr<char, FreeDeleter>;

// Reads until length bytes or the end of the file; false on an error.
bool ReadUpTo(int fd, char *to, size_t length, size_t *count) {
  *count = 0;
  while (*count < length) {
    const ssize_t step = ::read(fd, to + *count, length - *count);
    if (step == 0) break;
    if (step > 0) {
      *count += static_cast<size_t>(step);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool WriteAll(int fd, const char *from, size_t length) {
  while (length > 0) {
    const ssize_t step = ::write(fd, from, length);
    if (step >= 0) {
      from += step;
      length -= static_cast<size_t>(step);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

uint32_t ZOR_UTIL_ReadFileToBuf(const char *path, void **buffer, uint32_t *length) {
  if (buffer != nullptr) *buffer = nullptr;
  if (length != nullptr) *length = 0;
  if (path == nullptr || buffer == nullptr || length == nullptr) return ZOR_FILE_E_ARGUMENT;
  const File file(::open(path, O_RDONLY | O_CLOEXEC));
  struct stat status = {};
  if (file.fd() < 0 || ::fstat(file.fd(), &status) != 0 || !S_ISREG(status.st_mode)) return ZOR_FILE_E_IO;
  if (status.st_size > kReadMax) return ZOR_FILE_E_NO_MEMORY;
  const auto size = static_cast<size_t>(status.st_size);
  Block block(static_cast<char *>(std::malloc(size + 1)));
  if (block == nullptr) return ZOR_FILE_E_NO_MEMORY;
  size_t count = 0;
  if (!ReadUpTo(file.fd(), block.get(), size, &count)) return ZOR_FILE_E_IO;
  block.get()[count] = '\0';
  *length = static_cast<uint32_t>(count);
  *buffer = block.release();
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
  File file(::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kNewFileMode));
  if (file.fd() < 0) return ZOR_FILE_E_IO;
  const bool written = WriteAll(file.fd(), static_cast<const char *>(buffer), length);
  if (file.Close() && written) return ZOR_FILE_OK;
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
