// Where the result of a query may be written.
#ifndef SYSLOGD_QUERY_PATH_H
#define SYSLOGD_QUERY_PATH_H

#include <zor/log_wire.h>

#include <string>

namespace zor::syslogd {

// The real path of a result file; empty if the query's path is not directly in the directory, a fixed path: any client
// may send a query, and the daemon may write where they may not.
std::string ResultPath(const ZOR_LOG_QUERY &query, const std::string &directory);

}  // namespace zor::syslogd

#endif
