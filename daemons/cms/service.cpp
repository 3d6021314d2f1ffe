#include "cms/service.h"

#include <zor/config_wire.h>
#include <zor/kiva.h>
#include <zor/platform/config.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "cms/requested_path.h"
#include "programs/limits.h"

namespace zor::cms {
namespace {

struct Request {
  uint32_t type;
  bool hasReply;
  uint32_t (Service::*apply)(ZOR_MSG_HEAD &);
  const char *name;
};

constexpr auto kRequests = std::to_array<Request>({
    {ZOR_MSG_DYN_APP_UPDATE, false, &Service::Refuse, "update of a dynamic application"},
    {ZOR_MSG_DB_SAVE, false, &Service::Save, "save"},
    {ZOR_MSG_RESTORE_DEFAULT, false, &Service::Restore, "restore"},
    {ZOR_MSG_EXPORT_CFG_FILE, true, &Service::CopySaved, "export of what was saved"},
    {ZOR_MSG_EXPORT_ENC_CFG_FILE, true, &Service::Export, "encrypted export"},
    {ZOR_MSG_IMPORT_CFG_FILE, true, &Service::Import, "import"},
    {ZOR_MSG_CHECK_CFG_FILE, true, &Service::Check, "check"},
    {ZOR_MSG_CLEAN_CFG, true, &Service::Clean, "clean"},
    {ZOR_MSG_APP_SAVE_SYNC, true, &Service::SaveAppData, "save of application data"},
    {ZOR_MSG_DB_SAVE_SYNC, true, &Service::Save, "save"},
    {ZOR_MSG_DEL_APPDATA, true, &Service::DeleteAppData, "deletion of application data"},
    {ZOR_MSG_EXPORT_CFG_USER, false, &Service::NameExportUser, "user of an export"},
    {ZOR_MSG_DB_SAVE_TO_APP, false, &Service::SaveWithAppData, "save with application data"},
    {ZOR_MSG_DB_SAVE_TO_APP_SYNC, true, &Service::SaveWithAppData, "save with application data"},
    {ZOR_MSG_KILL_ALL_DYN_APP, true, &Service::Refuse, "stop of the dynamic applications"},
    {ZOR_MSG_KIVA_ADD, false, &Service::AddDevice, "change of the device list"},
    {ZOR_MSG_KIVA_ADD_SYNC, true, &Service::AddDevice, "change of the device list"},
    {ZOR_MSG_KIVA_REMOVE, false, &Service::RemoveDevice, "removal from the device list"},
    {ZOR_MSG_KIVA_REMOVE_SYNC, true, &Service::RemoveDevice, "removal from the device list"},
});

// What results mean that an operator can do something about.
struct Meaning {
  uint32_t result;
  const char *text;
};
constexpr auto kMeanings = std::to_array<Meaning>({
    {ZOR_CFG_E_NO_PASSPHRASE, ": no passphrase"},
    {ZOR_CFG_E_NOT_AUTHENTIC, ": encrypted with another passphrase, incomplete or changed"},
    {ZOR_CFG_E_FORMAT, ": encrypted in an unknown way"},
    {ZOR_CFG_E_NOT_ENCRYPTED, ": not encrypted, which import_plain does not allow"},
    {ZOR_CFG_E_NO_CRYPTO, ": the library of ciphers is not installed"},
});

const char *TextOf(uint32_t result) {
  const auto found =
      std::find_if(kMeanings.begin(), kMeanings.end(), [&](const Meaning &each) { return each.result == result; });
  return found == kMeanings.end() ? "" : found->text;
}

// Bus handlers have no data pointer.
Service *registered = nullptr;

const char *BodyOf(const ZOR_MSG_HEAD &request) {
  return reinterpret_cast<const char *>(&request + 1);
}

std::string SourceOf(const ZOR_MSG_HEAD &request) {
  return {request.source, ::strnlen(request.source, sizeof request.source)};
}

std::string PathOf(const ZOR_MSG_HEAD &request) {
  return RequestedPath({BodyOf(request), request.bodyLength});
}

}  // namespace

bool Service::Register() {
  registered = this;
  return std::all_of(kRequests.begin(), kRequests.end(), [](const Request &request) {
    return ZOR_MSG_RegSyncMsgProc(request.type, OnRequest, 0, nullptr) == ZOR_OK;
  });
}

ZOR_MSG_HEAD *Service::OnRequest(ZOR_MSG_HEAD *message) {
  const auto request =
      std::find_if(kRequests.begin(), kRequests.end(), [&](const Request &each) { return each.type == message->type; });
  if (request == kRequests.end()) return nullptr;
  const uint32_t result = registered->Apply(request->apply, *message);
  if (result != 0) {
    registered->problems_.Print("%s for %s failed: result 0x%x%s", request->name, SourceOf(*message).c_str(), result,
                                TextOf(result));
  }
  return request->hasReply ? ZOR_MSG_MsgResponseBuilder(message, result, nullptr, 0) : nullptr;
}

// The library, which called, does not pass exceptions on.
uint32_t Service::Apply(uint32_t (Service::*apply)(ZOR_MSG_HEAD &), ZOR_MSG_HEAD &request) try {
  return (this->*apply)(request);
} catch (const std::bad_alloc &) {
  return ZOR_STORE_E_NO_MEMORY;
}

uint32_t Service::Save(ZOR_MSG_HEAD &request) {
  return configuration_.Save(request.data);
}

uint32_t Service::SaveWithAppData(ZOR_MSG_HEAD &request) {
  return configuration_.SaveWithAppData(request.data);
}

uint32_t Service::SaveAppData(ZOR_MSG_HEAD &) {
  return configuration_.SaveAppData();
}

uint32_t Service::Restore(ZOR_MSG_HEAD &request) {
  ZOR_CFG_RESTORE body;
  if (request.bodyLength < sizeof body) return ZOR_STORE_E_ARGUMENT;
  std::memcpy(&body, BodyOf(request), sizeof body);
  switch (body.mode) {
    case ZOR_CFG_RESTORE_FACTORY:
      return configuration_.RestoreFactory();
    case ZOR_CFG_RESTORE_SAVED:
      return configuration_.RestoreSaved(body.user);
    default:
      return kUnsupported;
  }
}

uint32_t Service::CopySaved(ZOR_MSG_HEAD &request) {
  return configuration_.CopySaved(request.data, PathOf(request));
}

uint32_t Service::NameExportUser(ZOR_MSG_HEAD &request) {
  // Clients that name a user but never request the export must not fill the memory.
  if (exportUsers_.size() >= limits::cms::kExportUsers) exportUsers_.clear();
  exportUsers_[SourceOf(request)] = request.data;
  return 0;
}

uint32_t Service::Export(ZOR_MSG_HEAD &request) {
  const auto named = exportUsers_.extract(SourceOf(request));
  return named.empty() ? configuration_.Export(PathOf(request))
                       : configuration_.ExportSaved(named.mapped(), PathOf(request));
}

uint32_t Service::Import(ZOR_MSG_HEAD &request) {
  return configuration_.Import(PathOf(request));
}

uint32_t Service::Check(ZOR_MSG_HEAD &request) {
  return configuration_.Check(PathOf(request));
}

uint32_t Service::Clean(ZOR_MSG_HEAD &) {
  return configuration_.Clean();
}

uint32_t Service::DeleteAppData(ZOR_MSG_HEAD &) {
  return configuration_.DeleteAppData();
}

uint32_t Service::AddDevice(ZOR_MSG_HEAD &request) {
  return ZOR_UPG_DevKivaAddProc(&request);
}

uint32_t Service::RemoveDevice(ZOR_MSG_HEAD &request) {
  return ZOR_UPG_DevKivaInfoRemoveProc(&request);
}

uint32_t Service::Refuse(ZOR_MSG_HEAD &) {
  return kUnsupported;
}

}  // namespace zor::cms
