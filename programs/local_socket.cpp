#include "programs/local_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "common/socket_address.h"
#include "programs/local_address.h"
#include "programs/paths.h"

namespace zor::daemon {
namespace {

constexpr char kListenerName[] = "listener";
constexpr char kLockName[] = "lock";

// Where a link at the path leads; the path itself when there is none. Anybody can make links in a directory that is
// open to all, so only those of the system and of the server's own user count.
std::string FollowLink(const std::string &path) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return path;
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) return path;
  std::error_code error;
  const std::filesystem::path target = std::filesystem::read_symlink(path, error);
  return error ? path : (std::filesystem::path(path).parent_path() / target).string();
}

}  // namespace

LocalSocket::~LocalSocket() {
  if (fd_.valid() && !stored_ && IsMine()) ::unlink(path_.c_str());
}

ExitCode LocalSocket::Open(const std::string &fixedPath, int type, mode_t mode, ProblemLog &log) {
  return OpenBeside(fixedPath, "", type, mode, log);
}

ExitCode LocalSocket::OpenBeside(const std::string &fixedPath, const char *suffix, int type, mode_t mode,
                                 ProblemLog &log) {
  if (!SetPath(fixedPath, suffix, log)) return kExitFailure;
  if (const ExitCode code = Lock(fixedPath + suffix, log); code != kExitOk) return code;
  return Make(fixedPath + suffix, type, mode, log);
}

ExitCode LocalSocket::OpenPassed(const std::string &fixedPath, int type, mode_t mode,
                                 std::vector<PassedDescriptor> &passed, ProblemLog &log) {
  if (!SetPath(fixedPath, "", log)) return kExitFailure;
  if (const ExitCode code = AdoptLock(fixedPath, TakePassed(passed, kLockName), log); code != kExitOk) return code;
  if (TakeListener(fixedPath, type, passed, log)) return kExitOk;
  const ExitCode code = Make(fixedPath, type, mode, log);
  stored_ = code == kExitOk && StoreDescriptor(kListenerName, fd_.get());
  return code;
}

// A socket unit's comes before one that was stored.
bool LocalSocket::TakeListener(const std::string &fixedPath, int type, std::vector<PassedDescriptor> &passed,
                               ProblemLog &log) {
  for (;;) {
    UniqueFd listener = TakePassed(passed, kListenerName);
    if (!listener.valid()) return fd_.valid();
    const char *misfit = fd_.valid() ? "a socket unit has another one" : Misfit(listener.get(), type);
    if (misfit == nullptr) {
      Use(std::move(listener), type);
    } else {
      log.Print("%s: the socket that was passed is not used: %s", fixedPath.c_str(), misfit);
      RemoveStoredDescriptors(kListenerName);
    }
  }
}

ExitCode LocalSocket::Make(const std::string &fixedPath, int type, mode_t mode, ProblemLog &log) {
  if (const ExitCode code = RemoveStale(fixedPath, type, log); code != kExitOk) return code;
  if (Bind(type, mode)) return kExitOk;
  log.PrintErrno("%s: cannot listen", fixedPath.c_str());
  return kExitFailure;
}

// Wherever it is bound: a link that leads elsewhere by now is for the next start.
void LocalSocket::Adopt(UniqueFd listener, UniqueFd lock, int type) {
  lock_ = std::move(lock);
  path_ = PathOf(listener.get());
  Use(std::move(listener), type);
}

bool LocalSocket::SetPath(const std::string &fixedPath, const char *suffix, ProblemLog &log) {
  path_ = FollowLink(FixedPath(fixedPath)) + suffix;
  if (LocalAddress(path_)) return true;
  log.Print("%s: too long for the address of a socket beneath ZOR_ROOT", fixedPath.c_str());
  return false;
}

const char *LocalSocket::Misfit(int listener, int type) const {
  int actual = 0;
  socklen_t size = sizeof actual;
  struct stat status = {};
  if (::getsockopt(listener, SOL_SOCKET, SO_TYPE, &actual, &size) != 0 || actual != type) return "its type is another";
  if (PathOf(listener) != path_) return "it is bound elsewhere";
  return ::lstat(path_.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) ? nullptr : "its file is gone";
}

// Listening again makes its peers' view of who serves them that of this process. A socket unit's may block.
void LocalSocket::Use(UniqueFd listener, int type) {
  fd_ = std::move(listener);
  ::fcntl(fd_.get(), F_SETFL, ::fcntl(fd_.get(), F_GETFL) | O_NONBLOCK);
  stored_ = HasManager();
  struct stat status = {};
  if (::lstat(path_.c_str(), &status) == 0) {
    device_ = status.st_dev;
    inode_ = status.st_ino;
  }
  if (type != SOCK_DGRAM) ::listen(fd_.get(), SOMAXCONN);
}

// A lock that is held already is held by its duplicates too, one of which the manager may have passed.
ExitCode LocalSocket::AdoptLock(const std::string &fixedPath, UniqueFd lock, ProblemLog &log) {
  struct stat passed = {};
  struct stat current = {};
  const bool fits = ::fstat(lock.get(), &passed) == 0 && ::lstat((path_ + ".lock").c_str(), &current) == 0 &&
                    passed.st_dev == current.st_dev && passed.st_ino == current.st_ino &&
                    ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0;
  if (fits) {
    lock_ = std::move(lock);
    return kExitOk;
  }
  if (lock.valid()) {
    log.Print("%s.lock: the lock that was passed is not used", fixedPath.c_str());
    RemoveStoredDescriptors(kLockName);
  }
  if (const ExitCode code = Lock(fixedPath, log); code != kExitOk) return code;
  StoreDescriptor(kLockName, lock_.get());
  return kExitOk;
}

ExitCode LocalSocket::Lock(const std::string &fixedPath, ProblemLog &log) {
  lock_.reset(::open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!lock_.valid()) {
    log.PrintErrno("%s.lock", fixedPath.c_str());
    return kExitFailure;
  }
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return kExitOk;
  log.Print("%s: another %s is running", fixedPath.c_str(), log.program());
  return kExitBusy;
}

ExitCode LocalSocket::RemoveStale(const std::string &fixedPath, int type, ProblemLog &log) {
  struct stat status = {};
  if (::lstat(path_.c_str(), &status) != 0) return kExitOk;
  if (!S_ISSOCK(status.st_mode)) {
    log.Print("%s: exists and is not a socket", fixedPath.c_str());
    return kExitFailure;
  }
  if (SomebodyListens(*LocalAddress(path_), type)) {
    log.Print("%s: another process is listening there", fixedPath.c_str());
    return kExitBusy;
  }
  if (::unlink(path_.c_str()) == 0 || errno == ENOENT) return kExitOk;
  log.PrintErrno("%s: cannot be replaced", fixedPath.c_str());
  return kExitFailure;
}

bool LocalSocket::Bind(int type, mode_t mode) {
  UniqueFd fd(::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto address = LocalAddress(path_);
  // A datagram that is sent before that says nothing of its sender.
  constexpr int kOn = 1;
  if (type == SOCK_DGRAM) ::setsockopt(fd.get(), SOL_SOCKET, SO_PASSCRED, &kOn, sizeof kOn);
  if (!fd.valid() || !zor::Bind(fd.get(), *address)) return false;
  fd_ = std::move(fd);
  struct stat status = {};
  if (::lstat(path_.c_str(), &status) != 0) return false;
  device_ = status.st_dev;
  inode_ = status.st_ino;
  if (::chmod(path_.c_str(), mode) != 0) return false;
  return type == SOCK_DGRAM || ::listen(fd_.get(), SOMAXCONN) == 0;
}

bool LocalSocket::IsMine() const {
  struct stat status = {};
  return ::lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

}  // namespace zor::daemon
