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

#include "common/unique_fd.h"
#include "programs/exit_code.h"
#include "programs/problem_log.h"

namespace zor::daemon {

class LocalSocket {
 public:
  LocalSocket() = default;
  LocalSocket(const LocalSocket &) = delete;
  LocalSocket &operator=(const LocalSocket &) = delete;
  // Closes the socket and removes its file, unless another one has taken that path meanwhile.
  ~LocalSocket();

  // Binds at a fixed path whose directory exists; sockets of connections listen at once. type is SOCK_STREAM or
  // SOCK_DGRAM, mode says who may connect. The descriptor is non-blocking. Returns kExitOk; kExitBusy when another
  // process listens there; kExitFailure. Prints what went wrong.
  ExitCode Open(const std::string &fixedPath, int type, mode_t mode, ProblemLog &log);

  int fd() const { return fd_.get(); }

 private:
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
};

}  // namespace zor::daemon

#endif
