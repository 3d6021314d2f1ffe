// The logging daemon: takes datagrams from a local socket, one at a time, until it is told to stop.
//
// What it promises to a system in which any process may send to it:
// - A datagram counts only when its size agrees with its own length field and with what its type carries.
// - Memory is bounded: one datagram at a time, and a table of statistics with a largest size.
// - It never waits for a client. An answer that the client's queue does not take at once is given up; the client, which
//   waits for it 2 seconds at most, may ask again. Clients that read nothing keep no other from its answer.
// - Answers go only to sockets directly in the directory of the log's clients, whatever address a sender shows.
// - Lines are visible to readers of the file as soon as no more datagrams wait, and after 256 of them at the latest.
#ifndef MLOGSERVER_SERVER_H
#define MLOGSERVER_SERVER_H

#include <sys/socket.h>
#include <sys/un.h>
#include <zor/mlog_wire.h>

#include <optional>
#include <string>

#include "common/exit_code.h"
#include "common/problem_log.h"
#include "common/stop_signal.h"
#include "mlogserver/circular_log.h"
#include "mlogserver/stat_table.h"

namespace zor::mlogserver {

class Server {
 public:
  // The socket is bound and non-blocking; all that is handed over must outlive the server.
  Server(int socket, CircularLog &log, StatTable &stats, daemon::ProblemLog &problems);

  // Serves until a signal arrives, then takes what is queued already and saves the file. kExitOk, or kExitFailure when
  // the system does not let it wait.
  daemon::ExitCode Run(daemon::StopSignal &stop);

 private:
  struct Datagram {
    ZOR_MLOG_MSG msg;
    size_t size;  // as sent, which may be more than a message holds
    sockaddr_un sender;
    socklen_t senderLength;
  };

  // The next datagram; none when no more wait.
  bool Receive(Datagram &datagram);
  void TakeBatch();
  void Handle(const Datagram &datagram);
  bool HandleLine(const Datagram &datagram);
  bool HandleSetStat(const Datagram &datagram);
  bool HandleGetStat(const Datagram &datagram);
  bool HandlePowerOff(const Datagram &datagram);
  static ssize_t SendTo(int socket, const Datagram &request, const ZOR_MLOG_MSG &answer);
  void Answer(const Datagram &request, const ZOR_MLOG_MSG &answer);
  void Save();

  int socket_;
  CircularLog &log_;
  StatTable &stats_;
  daemon::ProblemLog &problems_;
  std::string clientDirectory_;
};

}  // namespace zor::mlogserver

#endif
