#include "programs/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "programs/fd.h"
#include "programs/paths.h"

namespace zor::daemon {

bool WriteAll(int file, std::span<const std::byte> content) {
  while (!content.empty()) {
    const ssize_t count = ::write(file, content.data(), content.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) content = content.subspan(static_cast<size_t>(count));
  }
  return true;
}

bool ReplaceFile(const std::string &path, std::span<const std::byte> content) {
  const std::string draft = path + ".new";
  const Fd file(::open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file.valid()) return false;
  if (WriteAll(file.get(), content) && ::fsync(file.get()) == 0 && ::rename(draft.c_str(), path.c_str()) == 0) {
    ::fsync(Fd(::open((ParentOf(path) + "/").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)).get());
    return true;
  }
  const int error = errno;
  ::unlink(draft.c_str());
  errno = error;
  return false;
}

}  // namespace zor::daemon
