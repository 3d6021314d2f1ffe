#include "programs/tls/secret_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/unique_fd.h"

namespace zor::tls {
namespace {

constexpr mode_t kForbidden = S_IWGRP | S_IRWXO;

}  // namespace

SecretFile::~SecretFile() {
  ::explicit_bzero(text_.data(), text_.size());
}

bool SecretFile::ReadAll(int file) {
  while (length_ < text_.size()) {
    const ssize_t count = ::read(file, &text_[length_], text_.size() - length_);
    if (count == 0) return true;
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) length_ += static_cast<std::size_t>(count);
  }
  errno = EFBIG;
  return false;
}

bool SecretFile::Read(const char *setting, const std::string &path, daemon::ProblemLog &log) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status = {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0 || !ReadAll(file.get())) {
    log.PrintErrno("%s = %s", setting, path.c_str());
    return false;
  }
  if ((status.st_mode & kForbidden) == 0 && (status.st_uid == 0 || status.st_uid == ::geteuid())) return true;
  log.Print(
      "%s = %s: others may read or replace it; it must belong to root or to this program's user, "
      "with mode 0640 or less",
      setting, path.c_str());
  return false;
}

}  // namespace zor::tls
