// What a keeper hears from its server: the datagrams of service_manager.h, from the manager's side.
#ifndef PROGRAMS_KEEPER_NOTICES_H
#define PROGRAMS_KEEPER_NOTICES_H

#include <sys/types.h>

#include <array>
#include <string_view>

#include "common/unique_fd.h"
#include "programs/exit_code.h"
#include "programs/local_socket.h"
#include "programs/problem_log.h"

namespace zor::daemon {

// One datagram: lines of NAME=VALUE and a descriptor, if there was one.
struct Notice {
  // Whether a line is that text.
  bool Has(std::string_view line) const;
  // What follows NAME= in the first such line; empty if there is none.
  std::string_view ValueOf(std::string_view name) const;

  pid_t sender;
  std::string_view text;
  UniqueFd fd;
};

class KeeperNotices {
 public:
  // Listens beside the server's socket, for this user only. Returns kExitBusy when another keeper does; prints what
  // went wrong.
  ExitCode Open(const std::string &fixedPath, ProblemLog &log);

  int fd() const { return socket_.fd(); }
  // For NOTIFY_SOCKET.
  const std::string &path() const { return socket_.path(); }
  // The next datagram, whose text is valid until the following one; false when there is none.
  bool Take(Notice &notice);

 private:
  LocalSocket socket_;
  std::array<char, 1024> buffer_;
};

}  // namespace zor::daemon

#endif
