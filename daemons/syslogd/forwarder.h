// Sends records to remote servers, one datagram each. It never waits: neither for a name server, so that servers are
// given by address, nor for the network; a datagram that does not go out at once is lost, with a line.
#ifndef SYSLOGD_FORWARDER_H
#define SYSLOGD_FORWARDER_H

#include <sys/socket.h>
#include <zor/log_wire.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/fd.h"
#include "common/problem_log.h"
#include "syslogd/log_record.h"

namespace zor::syslogd {

class Forwarder {
 public:
  Forwarder(std::uint32_t language, daemon::ProblemLog &problems) : language_(language), problems_(problems) {}

  // Replaces the servers: each text that is not empty is one, with the number beside it as its port (0: 514). The name
  // is how this system calls itself; empty: its host name. An address that cannot be used costs a line.
  void SetServers(const ZOR_LOG_SERVERS &servers);
  void Forward(const LogRecord &record);

 private:
  struct Target {
    daemon::Fd socket;
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
