// The request call/bridge/log: the newest lines of the user-visible log, by a query to the log daemon, which writes its
// result to a file.
#ifndef ZORBRIDGE_LOG_REQUEST_H
#define ZORBRIDGE_LOG_REQUEST_H

#include <string>

#include "zorbridge/requests.h"

namespace zor::bridge {

// `directory` is where the log daemon may write results, a fixed path.
void ServeLog(const std::string &directory, const Requests::Own &request);

}  // namespace zor::bridge

#endif
