#include "zorweb/file_tail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/mlog_wire.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "common/unique_fd.h"
#include "programs/mlog_header.h"

namespace zor::web {
namespace {

constexpr off_t kDataStart = ZOR_MLOG_FILE_HEADER_SIZE;

std::string ReadRange(int file, off_t begin, off_t end) {
  std::string text(static_cast<size_t>(std::max<off_t>(end - begin, 0)), '\0');
  size_t length = 0;
  while (length < text.size()) {
    const ssize_t count = ::pread(file, &text[length], text.size() - length, begin + static_cast<off_t>(length));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    length += static_cast<size_t>(count);
  }
  text.resize(length);
  return text;
}

// Without the part of a line at the front.
std::string WholeLines(std::string text, bool cut) {
  if (cut) text.erase(0, std::min(text.find('\n'), text.size() - 1) + 1);
  return text;
}

UniqueFd OpenFile(const std::string &path, struct stat &status, int flags = 0) {
  UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags));
  const bool usable = file.valid() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
  return usable ? std::move(file) : UniqueFd();
}

}  // namespace

std::optional<std::string> ReadTail(const std::string &path, size_t most) {
  struct stat status = {};
  const UniqueFd file = OpenFile(path, status, O_NOFOLLOW);
  if (!file.valid()) return std::nullopt;
  const off_t begin = std::max<off_t>(0, status.st_size - static_cast<off_t>(most));
  return WholeLines(ReadRange(file.get(), begin, status.st_size), begin > 0);
}

std::optional<std::string> ReadCircularTail(const std::string &path, size_t most) {
  struct stat status = {};
  const UniqueFd file = OpenFile(path, status);
  if (!file.valid()) return std::nullopt;
  const auto header = ReadMlogHeader(ReadRange(file.get(), 0, kDataStart));
  if (!header) return std::nullopt;
  const off_t end =
      std::clamp<off_t>(static_cast<off_t>(header->offset), kDataStart, std::max(kDataStart, status.st_size));
  const auto wanted = static_cast<off_t>(most);
  const off_t begin = std::max<off_t>(kDataStart, end - wanted);
  std::string text = ReadRange(file.get(), begin, end);
  // What the last round has left behind the end is older.
  const off_t missing = wanted - (end - begin);
  const bool wrapped = header->overturn > 0 && missing > 0;
  if (wrapped) text.insert(0, ReadRange(file.get(), std::max<off_t>(end, status.st_size - missing), status.st_size));
  return WholeLines(std::move(text), wrapped || begin > kDataStart);
}

}  // namespace zor::web
