#include "programs/paths.h"

#include <sys/stat.h>
#include <zor/platform/file.h>

#include <cerrno>
#include <climits>

namespace zor::daemon {
namespace {

bool IsDirectory(const std::string &path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool MakeOne(const std::string &path, mode_t mode) {
  if (IsDirectory(path)) return true;
  // chmod, because the mode of mkdir passes through the umask; EEXIST, because another server may make it meanwhile.
  if (::mkdir(path.c_str(), mode & 0777) == 0) return ::chmod(path.c_str(), mode) == 0;
  if (errno != EEXIST) return false;
  if (IsDirectory(path)) return true;
  errno = ENOTDIR;
  return false;
}

bool MakeReal(const std::string &path, mode_t mode) {
  if (path.empty() || IsDirectory(path)) return true;
  return MakeReal(ParentOf(path), 0755) && MakeOne(path, mode);
}

}  // namespace

std::string FixedPath(const std::string &path) {
  char text[PATH_MAX];
  return {text, ZOR_UTIL_FixedPath(path.c_str(), text, sizeof text)};
}

bool MakeDirectory(const std::string &fixedPath, mode_t mode) {
  const std::string path = FixedPath(fixedPath);
  if (path.empty()) {
    errno = ENAMETOOLONG;
    return false;
  }
  return MakeReal(path, mode);
}

std::string ParentOf(const std::string &path) {
  const size_t last = path.find_last_not_of('/');
  if (last == std::string::npos) return "";
  const size_t slash = path.rfind('/', last);
  return slash == std::string::npos ? "" : path.substr(0, slash);
}

}  // namespace zor::daemon
