// Replaces a file without ever showing half of it: the new content is written to a file beside it, which then takes its
// name. A process that dies on the way, or a power cut, leaves the old content.
#ifndef COMMON_REPLACEMENT_H
#define COMMON_REPLACEMENT_H

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "common/unique_fd.h"

namespace zor {

class Replacement {
 public:
  // The path must outlive the object. The process id in the name of the file beside it keeps two processes apart that
  // replace the same file; an old one of that name was left by a dead process of the same number, and is removed.
  explicit Replacement(const char *path) noexcept : path_(path) {
    const int length = std::snprintf(building_, sizeof building_, "%s.%d", path, static_cast<int>(::getpid()));
    valid_ = *path != '\0' && length > 0 && length < PATH_MAX;
    Remove();
  }
  Replacement(const Replacement &) = delete;
  Replacement &operator=(const Replacement &) = delete;
  ~Replacement() { Remove(); }

  // False when there is no path, or its name is too long.
  bool valid() const noexcept { return valid_; }
  // The name under which the new content is written.
  const char *building() const noexcept { return building_; }

  // Makes the file of that name. It must not exist: a link in its place could lead anywhere. Invalid, with errno, when
  // it cannot be made.
  UniqueFd Create(mode_t mode) const noexcept {
    if (!valid_) errno = ENAMETOOLONG;
    return UniqueFd(valid_ ? ::open(building_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode) : -1);
  }

  // Puts the written file in the place of the old one; it is on the disk before that. False, with errno, when the old
  // file has been left as it was.
  bool Commit() noexcept {
    if (!valid_ || !Sync(building_, O_RDONLY) || ::rename(building_, path_) != 0) return false;
    valid_ = false;
    return true;
  }

  // Gives the written file the path's name if that is free. False, with errno, when it is not, or could not be given.
  bool CommitNew() const noexcept { return valid_ && ::link(building_, path_) == 0; }

  // After Commit(): the new name survives a power cut once this returns true.
  bool SyncDirectory() const noexcept {
    char directory[PATH_MAX];
    const char *slash = std::strrchr(path_, '/');
    const int length = slash == nullptr ? 0 : static_cast<int>(slash - path_) + 1;
    const int written = std::snprintf(directory, sizeof directory, "%.*s.", length, path_);
    return written > 0 && written < PATH_MAX && Sync(directory, O_RDONLY | O_DIRECTORY);
  }

 private:
  static bool Sync(const char *path, int flags) noexcept {
    const UniqueFd file(::open(path, flags | O_NOFOLLOW | O_CLOEXEC));
    if (!file.valid()) return false;
    int result;
    do {
      result = ::fsync(file.get());
    } while (result != 0 && errno == EINTR);
    return result == 0;
  }

  // Keeps errno, so that callers can say why they gave up.
  void Remove() const noexcept {
    const int error = errno;
    if (valid_) ::unlink(building_);
    errno = error;
  }

  const char *path_;
  bool valid_ = false;
  char building_[PATH_MAX];
};

}  // namespace zor

#endif
