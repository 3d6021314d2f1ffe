// The logging daemon: receives datagrams on a local socket, one at a time, until it is stopped.
//
// Any process may send to it, so it guarantees:
// - A datagram is handled only if its size matches its length field and its type.
// - Memory is bounded: one datagram at a time, and a table of statistics with a maximum size. Without memory for a
//   datagram that one is dropped, with a line.
// - It never blocks on a client. A reply that does not fit the client's queue is dropped; the client waits at most 2
//   seconds for it and may ask again. Clients that do not read their replies do not delay those of others.
// - Replies go only to sockets of the sender's own user, directly in the directory of the log's clients.
// - A line in the file begins with its sender as the kernel reports it, and no text can look like another line.
// - Each user has a share of the lines and of the statistics.
// - Lines are visible to readers of the file once no more datagrams are pending, and after 256 of them at the latest.
#ifndef MLOGSERVER_SERVER_H
#define MLOGSERVER_SERVER_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "mlogserver/circular_log.h"
#include "mlogserver/datagram.h"
#include "mlogserver/line_rates.h"
#include "mlogserver/stat_table.h"
#include "programs/capability.h"
#include "programs/exit_code.h"
#include "programs/problem_log.h"
#include "programs/stop_signal.h"

namespace zor::mlogserver {

struct Rules {
  bool namesSenders;   // at the beginning of each line
  uint32_t userLines;  // at once ...
  uint32_t userRate;   // ... and then in a second
};

class Server {
 public:
  // The socket is bound and non-blocking; from now on it carries credentials. `anySocket` is the right to write to
  // sockets of other users. All arguments must outlive the server.
  Server(int socket, const Rules &rules, CircularLog &log, StatTable &stats,
         const daemon::LaidDownCapability &anySocket, daemon::ProblemLog &problems);

  // Serves until a signal arrives, then handles the pending datagrams and saves the file. Returns kExitOk, or
  // kExitFailure if it cannot wait for datagrams.
  daemon::ExitCode Run(daemon::StopSignal &stop);

 private:
  // The next datagram; none when no more wait.
  bool Receive(Datagram &datagram);
  void TakeBatch();
  void Handle(const Datagram &datagram);
  bool HandleLine(const Datagram &datagram);
  bool HandleSetStat(const Datagram &datagram);
  bool HandleGetStat(const Datagram &datagram);
  bool HandlePowerOff(const Datagram &datagram);
  void Append(const Sender &sender, std::string_view text);
  // Writes how many lines of each user were left out, if it is time or for `all`.
  void ReportLeftOut(bool all);
  void Reply(const Datagram &request, const ZOR_MLOG_MSG &reply);
  ssize_t SendTo(const sockaddr_un &address, const ZOR_MLOG_MSG &reply, int socket) const;
  void Save();

  int socket_;
  bool namesSenders_;
  LineRates rates_;
  CircularLog &log_;
  StatTable &stats_;
  const daemon::LaidDownCapability &anySocket_;
  daemon::ProblemLog &problems_;
  std::string clientDirectory_;
};

}  // namespace zor::mlogserver

#endif
