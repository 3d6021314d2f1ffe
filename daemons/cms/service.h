/*
 * The configuration daemon's end of the bus: one handler for all requests, and one table that says what each of them
 * does. Requests that cannot be done are answered with a result other than 0, or leave a line in the log when their
 * sender waits for nothing.
 */
#ifndef CMS_SERVICE_H
#define CMS_SERVICE_H

#include <zor/msg.h>

#include <cstdint>
#include <map>
#include <string>

#include "cms/configuration.h"
#include "common/problem_log.h"

namespace zor::cms {

// The result of a request that this daemon does not know how to do. Others are statuses of the store or of the list.
constexpr uint32_t kUnsupported = 1;

class Service {
 public:
  Service(const Configuration &configuration, daemon::ProblemLog &problems)
      : configuration_(configuration), problems_(problems) {}

  // Registers the handlers of all requests; they call this object from then on. False when memory runs out.
  bool Register();

  // One function for each request: its result.
  uint32_t Save(ZOR_MSG_HEAD &request);
  uint32_t SaveWithAppData(ZOR_MSG_HEAD &request);
  uint32_t SaveAppData(ZOR_MSG_HEAD &request);
  uint32_t Restore(ZOR_MSG_HEAD &request);
  uint32_t ExportSaved(ZOR_MSG_HEAD &request);
  uint32_t NameExportUser(ZOR_MSG_HEAD &request);
  uint32_t Export(ZOR_MSG_HEAD &request);
  uint32_t Import(ZOR_MSG_HEAD &request);
  uint32_t Check(ZOR_MSG_HEAD &request);
  uint32_t Clean(ZOR_MSG_HEAD &request);
  uint32_t DeleteAppData(ZOR_MSG_HEAD &request);
  uint32_t AddDevice(ZOR_MSG_HEAD &request);
  uint32_t RemoveDevice(ZOR_MSG_HEAD &request);
  uint32_t Refuse(ZOR_MSG_HEAD &request);

 private:
  static ZOR_MSG_HEAD *OnRequest(ZOR_MSG_HEAD *request);

  const Configuration &configuration_;
  daemon::ProblemLog &problems_;
  // Who asked for the export of which user's configuration, until the export itself is asked for.
  std::map<std::string, uint32_t> exportUsers_;
};

}  // namespace zor::cms

#endif
