// The requests to the configuration daemon: one handler for all of them, and one table with the function for each. A
// request that fails is logged; if its sender waits for a reply, the reply has a result other than 0.
#ifndef CMS_SERVICE_H
#define CMS_SERVICE_H

#include <zor/msg.h>

#include <cstdint>
#include <map>
#include <string>

#include "cms/configuration.h"
#include "programs/problem_log.h"

namespace zor::cms {

// The result of a request that this daemon does not support. Other results are statuses of the store or the device
// list, or ZOR_CFG_E_ ones.
constexpr uint32_t kUnsupported = 1;

class Service {
 public:
  Service(const Configuration &configuration, daemon::ProblemLog &problems)
      : configuration_(configuration), problems_(problems) {}

  // Registers the handlers of all requests, which then call this object. False if memory runs out.
  bool Register();

  // One function per request; each returns the result.
  uint32_t Save(ZOR_MSG_HEAD &request);
  uint32_t SaveWithAppData(ZOR_MSG_HEAD &request);
  uint32_t SaveAppData(ZOR_MSG_HEAD &request);
  uint32_t Restore(ZOR_MSG_HEAD &request);
  uint32_t CopySaved(ZOR_MSG_HEAD &request);
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
  uint32_t Apply(uint32_t (Service::*apply)(ZOR_MSG_HEAD &), ZOR_MSG_HEAD &request);

  const Configuration &configuration_;
  daemon::ProblemLog &problems_;
  // The user named by each client for its next export.
  std::map<std::string, uint32_t> exportUsers_;
};

}  // namespace zor::cms

#endif
