// The requests to the log daemon. It replies only to requests whose senders wait; docs/protocol.md describes each of
// them.
//
// The filter and the remote servers are set by requests and persisted in the store. Types and levels in requests are
// bit sets: a record passes if it has one of the types and one of the levels.
#ifndef SYSLOGD_LOG_SERVICE_H
#define SYSLOGD_LOG_SERVICE_H

#include <zor/log_wire.h>
#include <zor/msg.h>

#include <cstdint>
#include <optional>
#include <string>

#include "programs/problem_log.h"
#include "syslogd/forwarder.h"
#include "syslogd/log_store.h"

namespace zor::syslogd {

class LogService {
 public:
  struct Options {
    std::string queryDirectory;  // a fixed path: where query results may be written
    std::uint32_t language;      // of the system query and of copies
    std::string copyTo;          // the daemon that is sent a copy of each kept record; empty: none
    bool verbose = false;        // print each record
  };

  // All arguments must outlive the service. There is one service per process.
  LogService(Options options, LogStore &store, Forwarder &forwarder, daemon::ProblemLog &problems);

  // Registers the handlers of all requests. False if memory runs out.
  bool Register();

 private:
  // The data word of the reply; nothing for a request that gets no reply.
  using Result = std::optional<std::uint32_t>;
  struct Request {
    std::uint32_t type;
    Result (LogService::*serve)(const ZOR_MSG_HEAD &);
  };
  static const Request kRequests[];

  static ZOR_MSG_HEAD *Serve(ZOR_MSG_HEAD *msg);
  // The result of a request that could not be served.
  Result Failure(const ZOR_MSG_HEAD &msg);
  Result Record(const ZOR_MSG_HEAD &msg);
  Result Query(const ZOR_MSG_HEAD &msg);
  Result Clear(const ZOR_MSG_HEAD &msg);
  Result SetFilter(const ZOR_MSG_HEAD &msg);
  Result SetServers(const ZOR_MSG_HEAD &msg);
  Result Flush(const ZOR_MSG_HEAD &msg);

  bool Keep(const LogRecord &record);
  void SendCopy(const LogRecord &record) const;
  void ReportMalformed(const ZOR_MSG_HEAD &msg);

  Options options_;
  LogStore &store_;
  Forwarder &forwarder_;
  daemon::ProblemLog &problems_;
  std::uint32_t filter_;
};

}  // namespace zor::syslogd

#endif
