#include "mlogserver/client_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace zor::mlogserver {
namespace {

constexpr char kOwnDescriptors[] = "/proc/self/fd";

bool IsDirectlyIn(const std::string &path, const std::string &directory) {
  return path.starts_with(directory) && path.size() > directory.size() &&
         path.find('/', directory.size()) == std::string::npos;
}

const char *RefusalOf(const struct stat &status, uid_t user) {
  if (S_ISLNK(status.st_mode)) return "it is a link";
  if (!S_ISSOCK(status.st_mode)) return "it is not a socket";
  return status.st_uid == user ? nullptr : "it belongs to another user";
}

}  // namespace

ClientSocket::ClientSocket(const std::string &path, const std::string &directory, uid_t user) {
  if (!IsDirectlyIn(path, directory)) {
    refusal_ = "it is outside the directory of the log";
    return;
  }
  entry_.reset(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status = {};
  if (!entry_.valid()) {
    if (errno != ENOENT) refusal_ = "it cannot be opened";
  } else if (::fstat(entry_.get(), &status) != 0) {
    refusal_ = "its owner is unknown";
  } else {
    refusal_ = RefusalOf(status, user);
  }
}

sockaddr_un ClientSocket::Address() const {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s/%d", kOwnDescriptors, entry_.get());
  return address;
}

bool ClientSocket::IsSupported() {
  return ::access(kOwnDescriptors, X_OK) == 0;
}

}  // namespace zor::mlogserver
