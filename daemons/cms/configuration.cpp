#include "cms/configuration.h"

#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "cms/requested_path.h"
#include "common/replacement.h"
#include "programs/paths.h"

namespace zor::cms {
namespace {

namespace fs = std::filesystem;

uint32_t Write(const std::string &path, uint32_t parts) {
  return ZOR_STORE_WriteFile(path.c_str(), parts);
}

// Copies a store file; only another export may be replaced by it.
uint32_t Copy(const std::string &from, const std::string &to) {
  if (const uint32_t status = ZOR_STORE_CheckFile(from.c_str()); status != ZOR_STORE_OK) return status;
  if (const uint32_t status = ExportFiles::CheckTarget(to); status != ZOR_STORE_OK) return status;
  Replacement replacement(to.c_str());
  if (!replacement.valid()) return ZOR_STORE_E_IO;
  std::error_code error;
  // Never writes over an existing file: it could be a link to a file that only this daemon may write.
  fs::copy_file(from, replacement.building(), error);
  if (error || !replacement.Commit()) return ZOR_STORE_E_IO;
  replacement.SyncDirectory();
  return ZOR_STORE_OK;
}

uint32_t Read(const std::string &path, uint32_t parts) {
  return ZOR_STORE_ReadFile(path.c_str(), parts);
}

}  // namespace

std::string Configuration::PathOf(const char *kind, uint32_t user) const {
  return daemon::FixedPath(directory_ + "/" + kind + std::to_string(user) + ".db");
}

uint32_t Configuration::Save(uint32_t user) const {
  return Write(PathOf("config_", user), ZOR_STORE_CONFIGURATION);
}

uint32_t Configuration::SaveWithAppData(uint32_t user) const {
  return Write(PathOf("app_", user), ZOR_STORE_ALL);
}

uint32_t Configuration::SaveAppData() const {
  return Write(daemon::FixedPath(directory_ + "/appdata.db"), ZOR_STORE_APPDATA);
}

uint32_t Configuration::RestoreFactory() const {
  const uint32_t status = Read(daemon::FixedPath(factoryFile_), ZOR_STORE_CONFIGURATION);
  return status == ZOR_STORE_E_NOT_FOUND ? ZOR_STORE_Clear(ZOR_STORE_CONFIGURATION) : status;
}

uint32_t Configuration::RestoreSaved(uint32_t user) const {
  return Read(PathOf("config_", user), ZOR_STORE_CONFIGURATION);
}

// What was saved is there, and a file in its place would keep it from being saved again.
bool Configuration::IsTarget(const std::string &path) const {
  return !path.empty() && !IsIn(path, daemon::FixedPath(directory_));
}

uint32_t Configuration::Export(const std::string &target) const {
  if (!IsTarget(target)) return ZOR_STORE_E_ARGUMENT;
  return exports_.Seal(target, [](const std::string &file) { return Write(file, ZOR_STORE_CONFIGURATION); });
}

uint32_t Configuration::ExportSaved(uint32_t user, const std::string &target) const {
  if (!IsTarget(target)) return ZOR_STORE_E_ARGUMENT;
  return exports_.Seal(target, [&](const std::string &file) { return Copy(PathOf("config_", user), file); });
}

uint32_t Configuration::CopySaved(uint32_t user, const std::string &target) const {
  return IsTarget(target) ? Copy(PathOf("config_", user), target) : ZOR_STORE_E_ARGUMENT;
}

uint32_t Configuration::Import(const std::string &source) const {
  if (source.empty()) return ZOR_STORE_E_ARGUMENT;
  return exports_.Open(source, [](const std::string &file) { return Read(file, ZOR_STORE_CONFIGURATION); });
}

uint32_t Configuration::Check(const std::string &source) const {
  if (source.empty()) return ZOR_STORE_E_ARGUMENT;
  return exports_.Open(source, [](const std::string &file) { return ZOR_STORE_CheckFile(file.c_str()); });
}

uint32_t Configuration::Clean() const {
  const uint32_t status = ZOR_STORE_Clear(ZOR_STORE_CONFIGURATION);
  return status == ZOR_STORE_OK ? DeleteSaved({"config_", "app_"}) : status;
}

uint32_t Configuration::DeleteAppData() const {
  const uint32_t status = ZOR_STORE_Clear(ZOR_STORE_APPDATA);
  return status == ZOR_STORE_OK ? DeleteSaved({"appdata", "app_"}) : status;
}

uint32_t Configuration::DeleteSaved(std::initializer_list<std::string_view> kinds) const {
  std::error_code error;
  for (const auto &entry : fs::directory_iterator(daemon::FixedPath(directory_), error)) {
    const std::string name = entry.path().filename().string();
    const bool matches =
        std::any_of(kinds.begin(), kinds.end(), [&](std::string_view kind) { return name.starts_with(kind); });
    if (matches && !fs::remove(entry.path(), error) && error) break;
  }
  return error ? ZOR_STORE_E_IO : ZOR_STORE_OK;
}

}  // namespace zor::cms
