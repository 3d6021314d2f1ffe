// What the log daemon does for others on the bus. It answers exactly those requests whose senders wait; see
// docs/protocol.md for what each means.
//
// The filter and the remote servers come from requests and are kept in the store, so that they outlive the daemon.
// Types and levels in requests are sets of bits: a record passes when it has one of the types and one of the levels.
#ifndef SYSLOGD_LOG_SERVICE_H
#define SYSLOGD_LOG_SERVICE_H

#include <zor/log_wire.h>
#include <zor/msg.h>

#include <cstdint>
#include <optional>
#include <string>

#include "common/problem_log.h"
#include "syslogd/forwarder.h"
#include "syslogd/log_store.h"

namespace zor::syslogd {

class LogService {
 public:
  struct Options {
    std::string queryDirectory;  // a fixed path: where query results may be written
    std::uint32_t language;      // of the system query
    bool verbose = false;        // print each record
  };

  // All that is handed over must outlive the service. There is one service per process.
  LogService(Options options, LogStore &store, Forwarder &forwarder, daemon::ProblemLog &problems);

  // Registers for all requests to the log daemon. False when memory runs out.
  bool Register();

 private:
  // The data word of the answer; none for a request that gets none.
  using Answer = std::optional<std::uint32_t>;
  struct Request {
    std::uint32_t type;
    Answer (LogService::*serve)(const ZOR_MSG_HEAD &);
  };
  static const Request kRequests[];

  static ZOR_MSG_HEAD *Serve(ZOR_MSG_HEAD *msg);
  Answer Record(const ZOR_MSG_HEAD &msg);
  Answer Query(const ZOR_MSG_HEAD &msg);
  Answer Clear(const ZOR_MSG_HEAD &msg);
  Answer SetFilter(const ZOR_MSG_HEAD &msg);
  Answer SetServers(const ZOR_MSG_HEAD &msg);
  Answer Flush(const ZOR_MSG_HEAD &msg);

  bool Keep(const LogRecord &record);
  // Where a result file lies; empty when it is not one that may be written.
  std::string ResultPath(const ZOR_LOG_QUERY &query) const;
  void ReportMalformed(const ZOR_MSG_HEAD &msg);

  Options options_;
  LogStore &store_;
  Forwarder &forwarder_;
  daemon::ProblemLog &problems_;
  std::uint32_t filter_;
};

}  // namespace zor::syslogd

#endif
