// Sends records to remote servers, one datagram each. It never blocks: servers are given by address, so no name server
// is asked; a datagram that the network does not accept at once is dropped, with a log line.
#ifndef SYSLOGD_FORWARDER_H
#define SYSLOGD_FORWARDER_H

#include <sys/socket.h>
#include <zor/log_wire.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "programs/problem_log.h"
#include "syslogd/log_record.h"

namespace zor::syslogd {

class Forwarder {
 public:
  Forwarder(std::uint32_t language, daemon::ProblemLog &problems) : language_(language), problems_(problems) {}

  // Replaces the servers: each non-empty text is a server address, with the number beside it as its port (0: 514). The
  // name is this system's name in the messages; empty: its host name. Invalid addresses are logged.
  void SetServers(const ZOR_LOG_SERVERS &servers);
  void Forward(const LogRecord &record);

 private:
  struct Target {
    UniqueFd socket;
    sockaddr_storage address;
    socklen_t length;
  };

  void AddTarget(const std::string &server, std::uint16_t port);

  std::uint32_t language_;
  daemon::ProblemLog &problems_;
  std::string hostName_;
  std::vector<Target> targets_;
};

}  // namespace zor::syslogd

#endif
