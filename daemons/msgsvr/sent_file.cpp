#include "msgsvr/sent_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <span>

#include "common/write_all.h"
#include "programs/limits.h"

namespace zor::msgsvr {
namespace {

constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
constexpr size_t kPiece = 65536;  // of a copy

bool IsSame(const struct stat &one, const struct stat &other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

ssize_t ReadAt(int file, std::span<std::byte> to, off_t offset) {
  ssize_t count;
  do {
    count = ::pread(file, to.data(), to.size(), offset);
  } while (count < 0 && errno == EINTR);
  return count;
}

}  // namespace

FilePath::FilePath(std::string_view directory, std::string_view name) {
  std::snprintf(text_.data(), text_.size(), "%.*s%.*s", static_cast<int>(directory.size()), directory.data(),
                static_cast<int>(name.size()), name.data());
}

const char *SentFile::ProblemOf(const struct stat &status) const {
  if (!S_ISREG(status.st_mode) || status.st_uid != owner_) return "is not a body file of the sender's user";
  // Also keeps a file that is nearly all holes from becoming a real one of that size.
  return status.st_size > limits::msgsvr::kBodyFileBytes ? "is longer than any client can receive" : nullptr;
}

const char *SentFile::Look(const FilePath &path, uid_t owner) {
  path_ = path;
  owner_ = owner;
  file_.reset();
  if (::lstat(path_.c_str(), &status_) != 0) status_ = {};
  return ProblemOf(status_);
}

// Non-blocking, because opening a FIFO would wait for its writer.
bool SentFile::Open() {
  if (file_.valid()) return true;
  UniqueFd file(::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status;
  if (!file.valid() || ::fstat(file.get(), &status) != 0) return false;
  if (ProblemOf(status) != nullptr) {
    errno = ESTALE;
    return false;
  }
  status_ = status;
  file_ = std::move(file);
  return true;
}

bool SentFile::MakePrivate() {
  if ((status_.st_mode & kOthers) == 0) return true;
  return Open() && ::fchmod(file_.get(), status_.st_mode & S_IRWXU) == 0;
}

bool SentFile::CopyTo(int file) {
  if (!Open()) return false;
  std::array<std::byte, kPiece> piece;
  for (off_t done = 0; done < status_.st_size;) {
    const ssize_t count = ReadAt(file_.get(), std::span(piece).first(std::min(piece.size(), size())), done);
    if (count == 0) break;  // it has become shorter
    const auto taken = std::min<off_t>(count, status_.st_size - done);
    if (count < 0 || !WriteAll(file, std::span(piece).first(static_cast<size_t>(taken)))) return false;
    done += taken;
  }
  return true;
}

std::optional<std::vector<std::byte>> SentFile::Read(size_t maxBytes) {
  if (!Open()) return std::nullopt;
  std::vector<std::byte> content(maxBytes);
  const ssize_t count = ReadAt(file_.get(), content, 0);
  if (count < 0) return std::nullopt;
  content.resize(static_cast<size_t>(count));
  return content;
}

void SentFile::Remove() const {
  struct stat status;
  if (::lstat(path_.c_str(), &status) == 0 && IsSame(status, status_)) ::unlink(path_.c_str());
}

}  // namespace zor::msgsvr
