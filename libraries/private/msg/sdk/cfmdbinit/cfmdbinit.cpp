#include <zor/cfm.h>
#include <zor/limits.h>

#include <zor/msg_build.h>
#include <zor/msg_request.h>
#include <zor/platform/config.h>
#include <zor/platform/process.h>
#include <zor/status.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "main/request_result.h"

static_assert(sizeof(ZOR_CFG_RESTORE) == 8 && offsetof(ZOR_CFG_RESTORE, user) == 4);

namespace {

struct FileRequest {
  ZOR_MSG_HEAD header;
  char path[ZOR_CFG_PATH_SIZE];
};
static_assert(offsetof(FileRequest, path) == ZOR_MSG_HEAD_SIZE);

uint32_t AskAboutFile(uint32_t type, uint32_t dataWord, const char *path) {
  FileRequest request;
  ZOR_MSG_SimpleBuilder(&request.header, nullptr, type, dataWord);
  if (path != nullptr) {
    const size_t length = strnlen(path, sizeof request.path - 1);
    std::memcpy(request.path, path, length);
    request.path[length] = '\0';
    request.header.bodyLength = static_cast<uint32_t>(length + 1);
  }
  return zor::RequestResult(request.header, ZOR_CFG_FILE_WAIT_MS);
}

// Unlike a request about a file, one without a reply has failed.
uint32_t AskToSave(uint32_t type, uint32_t timeoutMs) {
  uint32_t result = 0;
  const uint32_t status = ZOR_MSG_SendAndRecvMsgData(nullptr, type, 0, timeoutMs, &result);
  return status == ZOR_OK ? result : status;
}

uint32_t PostSave(uint32_t type) {
  return ZOR_MSG_SendSimpleMsg(nullptr, type, ZOR_DBGetCurrUser());
}

}  // namespace

uint32_t ZOR_DBSaveFunc(void) {
  return PostSave(ZOR_MSG_DB_SAVE);
}

uint32_t ZOR_DBSaveToAppFunc(void) {
  return PostSave(ZOR_MSG_DB_SAVE_TO_APP);
}

uint32_t ZOR_DBSaveSyncFunc(void) {
  return AskToSave(ZOR_MSG_DB_SAVE_SYNC, ZOR_CFG_SAVE_WAIT_MS);
}

uint32_t ZOR_DBSaveToAppSyncFunc(void) {
  return AskToSave(ZOR_MSG_DB_SAVE_TO_APP_SYNC, ZOR_CFG_APP_SAVE_WAIT_MS);
}

uint32_t ZOR_AppSaveSyncFunc(void) {
  return AskToSave(ZOR_MSG_APP_SAVE_SYNC, ZOR_CFG_APP_SAVE_WAIT_MS);
}

uint32_t ZOR_CFM_ExportFlashCfgFile(uint32_t dataWord, const char *path) {
  return AskAboutFile(ZOR_MSG_EXPORT_CFG_FILE, dataWord, path);
}

uint32_t ZOR_CFM_ExtExportEncryptedCfgFile(const char *path) {
  return AskAboutFile(ZOR_MSG_EXPORT_ENC_CFG_FILE, 0, path);
}

uint32_t ZOR_CFM_ExtExportEncCfgFileByUser(const char *path, uint32_t user) {
  ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_EXPORT_CFG_USER, user);  // if it is lost, the request that follows fails
  return ZOR_CFM_ExtExportEncryptedCfgFile(path);
}

uint32_t ZOR_CFM_ExtImportEncryptedCfgFile(const char *path) {
  if (path != nullptr) std::printf("before send ZOR_MSG_IMPORT_CFG_FILE, file=%s.\n", path);
  return AskAboutFile(ZOR_MSG_IMPORT_CFG_FILE, 0, path);
}

uint32_t ZOR_DBCheckFile(const char *path) {
  return AskAboutFile(ZOR_MSG_CHECK_CFG_FILE, 0, path);
}

uint32_t ZOR_CFM_ExtRestoreDft(uint32_t mode) {
  const ZOR_CFG_RESTORE body = {mode, ZOR_DBGetCurrUser()};
  return ZOR_MSG_SendMsgData(nullptr, ZOR_MSG_RESTORE_DEFAULT, &body, sizeof body);
}

uint32_t ZOR_CFM_CleanCFG(void) {
  return AskAboutFile(ZOR_MSG_CLEAN_CFG, 0, nullptr);
}

uint32_t ZOR_CFM_DelAppdata(void) {
  return AskAboutFile(ZOR_MSG_DEL_APPDATA, 0, nullptr);
}

uint32_t ZOR_CFM_ExtReboot(uint32_t argument) {
  return ZOR_UTIL_Reboot(argument);
}
