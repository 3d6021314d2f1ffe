// The local socket at which a server listens.
//
// One server per path: a lock on the file PATH.lock, held as long as the process lives, decides between two that start
// at the same time; a socket that another program still serves is left alone too; one that no process holds is
// replaced. The lock file stays behind, since removing it would let two servers lock two files of the same name.
//
// A server that must not write to the directory of its fixed path finds a link there, made by root, and listens where
// it leads; the lock is there too.
#ifndef PROGRAMS_LOCAL_SOCKET_H
#define PROGRAMS_LOCAL_SOCKET_H

#include <sys/stat.h>

#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "programs/exit_code.h"
#include "programs/problem_log.h"
#include "programs/service_manager.h"

namespace zor::daemon {

class LocalSocket {
 public:
  LocalSocket() = default;
  LocalSocket(const LocalSocket &) = delete;
  LocalSocket &operator=(const LocalSocket &) = delete;
  // Closes the socket, and removes its file unless the manager holds the socket or another one has taken that path.
  ~LocalSocket();

  // Binds at a fixed path whose directory exists; sockets of connections listen at once. type is SOCK_STREAM or
  // SOCK_DGRAM, mode says who may connect. The descriptor is non-blocking. Returns kExitOk; kExitBusy when another
  // process listens there; kExitFailure. Prints what went wrong.
  ExitCode Open(const std::string &fixedPath, int type, mode_t mode, ProblemLog &log);

  // The same at the path where the server of fixedPath is, with a suffix.
  ExitCode OpenBeside(const std::string &fixedPath, const char *suffix, int type, mode_t mode, ProblemLog &log);

  // Adopts the passed descriptors named "listener" and "lock", which it takes out of the vector; opens the socket when
  // there is none. Listeners are those of a socket unit and of a server that crashed; the first that is what Open makes
  // at that path is used, any other is named in the log and closed.
  // What it opens it stores with the manager.
  ExitCode OpenPassed(const std::string &fixedPath, int type, mode_t mode, std::vector<PassedDescriptor> &passed,
                      ProblemLog &log);
  // Adopts descriptors that a predecessor has handed over.
  void Adopt(UniqueFd listener, UniqueFd lock, int type);

  int fd() const { return fd_.get(); }
  const std::string &path() const { return path_; }
  int lockFd() const { return lock_.get(); }

 private:
  bool SetPath(const std::string &fixedPath, const char *suffix, ProblemLog &log);
  // Whether one of the passed sockets is used from now on; takes all of them out of the vector.
  bool TakeListener(const std::string &fixedPath, int type, std::vector<PassedDescriptor> &passed, ProblemLog &log);
  ExitCode Make(const std::string &fixedPath, int type, mode_t mode, ProblemLog &log);
  ExitCode AdoptLock(const std::string &fixedPath, UniqueFd lock, ProblemLog &log);
  // Why the socket cannot be adopted; null if it can.
  const char *Misfit(int listener, int type) const;
  void Use(UniqueFd listener, int type);
  ExitCode Lock(const std::string &fixedPath, ProblemLog &log);
  ExitCode RemoveStale(const std::string &fixedPath, int type, ProblemLog &log);
  bool Bind(int type, mode_t mode);
  // Whether the file at the path is the one that this socket made.
  bool IsMine() const;

  std::string path_;
  UniqueFd lock_;
  UniqueFd fd_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool stored_ = false;
};

}  // namespace zor::daemon

#endif
